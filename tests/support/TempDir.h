#pragma once

#include <QDir>
#include <QString>
#include <QTemporaryDir>

namespace velum::test {

// A fresh folder under the system's temporary folder, removed with
// everything in it when the object goes.
class TempDir {
public:
    TempDir() : m_dir(QDir::tempPath() + QStringLiteral("/velum-test-XXXXXX")) {}
    QString path() const { return m_dir.path(); }
    QString file(const QString &name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
};

// Writes bytes to a file, creating missing parent folders.
void writeBytes(const QString &path, const QByteArray &bytes);
QByteArray readBytes(const QString &path);

} // namespace velum::test
