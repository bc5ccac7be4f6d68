#pragma once

#include <QByteArray>
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

// Points an environment variable at a path for the life of the object, and
// puts the previous value back afterwards.
class PathOverride {
public:
    PathOverride(const char *variable, const QString &path);
    ~PathOverride();
    PathOverride(const PathOverride &) = delete;
    PathOverride &operator=(const PathOverride &) = delete;

private:
    const char *m_variable;
    bool m_had;
    QByteArray m_previous;
};

// A temporary folder of this test's own (TMPDIR pointed into `dir`) for the
// life of the object: the stages give their temporary files fixed names, and
// test processes running side by side must not meet in them. Make shared
// media before, for they are found under the system's temporary folder.
class PrivateTemporaryFolder {
public:
    explicit PrivateTemporaryFolder(const TempDir &dir) : m_override("TMPDIR", dir.path()) {}

private:
    PathOverride m_override;
};

// Writes bytes to a file, creating missing parent folders.
void writeBytes(const QString &path, const QByteArray &bytes);
QByteArray readBytes(const QString &path);

} // namespace velum::test
