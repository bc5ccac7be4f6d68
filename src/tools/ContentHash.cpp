#include "tools/ContentHash.h"

#include "tools/DetachedTask.h"
#include "tools/Sha256.h"

#include <QFile>

namespace velum::ContentHash {

namespace {

constexpr qint64 chunkSize = 1048576;

[[noreturn]] void fail(const QString &path, const QString &reason)
{
    throw ReadError(QStringLiteral("Couldn’t read “%1”: %2").arg(path, reason).toStdString());
}

} // namespace

QString videoIDBlocking(const QUrl &url, const Cancellation &cancellation)
{
    const QString path = url.isLocalFile() ? url.toLocalFile() : url.toString();
    if (!url.isLocalFile())
        fail(path, QStringLiteral("not a local file"));

    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        fail(path, file.errorString());

    Sha256 hash;
    QByteArray chunk(chunkSize, Qt::Uninitialized);
    for (;;) {
        cancellation.throwIfCancelled();
        const qint64 n = file.read(chunk.data(), chunkSize);
        if (n < 0)
            fail(path, file.errorString());
        if (n == 0)
            break;
        hash.addData(QByteArrayView(chunk.constData(), n));
    }

    const QByteArray digest = hash.result();
    QString text;
    text.reserve(digest.size() * 2);
    for (const char byte : digest)
        text += QString::asprintf("%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    return text;
}

QCoro::Task<QString> videoID(QUrl url, Cancellation cancellation)
{
    // Built outside the co_await expression: the compiler mishandles
    // temporaries that live across a suspension.
    auto task = runDetached([url, cancellation] { return videoIDBlocking(url, cancellation); });
    co_return co_await std::move(task);
}

} // namespace velum::ContentHash
