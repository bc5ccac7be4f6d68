#include "tools/Sha256.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QRandomGenerator>

using velum::Sha256;

namespace {

QByteArray portable(const QByteArray &bytes) { return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256); }

} // namespace

TEST(Sha256, KnownDigests)
{
    Sha256 empty;
    EXPECT_EQ(empty.result().toHex(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    Sha256 abc;
    abc.addData("abc");
    EXPECT_EQ(abc.result().toHex(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    Sha256 twoBlocks;
    twoBlocks.addData("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq");
    EXPECT_EQ(twoBlocks.result().toHex(), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

// Every length around the block and padding boundaries, fed whole and in
// uneven pieces, gives the portable implementation's digest.
TEST(Sha256, MatchesThePortableDigestForEveryLengthAndSplit)
{
    QRandomGenerator random(20240301);
    QByteArray bytes(3 * 64 + 17, Qt::Uninitialized);
    for (auto &b : bytes)
        b = static_cast<char>(random.bounded(256));
    for (qsizetype length = 0; length <= bytes.size(); ++length) {
        const QByteArray part = bytes.left(length);
        Sha256 whole;
        whole.addData(part);
        EXPECT_EQ(whole.result(), portable(part)) << length;

        Sha256 pieces;
        for (qsizetype at = 0, step = 1; at < length; at += step, step = step % 70 + 13)
            pieces.addData(QByteArrayView(part).sliced(at, std::min(step, length - at)));
        EXPECT_EQ(pieces.result(), portable(part)) << length;
    }

    QByteArray large(5 * 1048576 + 3, Qt::Uninitialized);
    for (auto &b : large)
        b = static_cast<char>(random.bounded(256));
    Sha256 chunked;
    for (qsizetype at = 0; at < large.size(); at += 1048576)
        chunked.addData(QByteArrayView(large).sliced(at, std::min<qsizetype>(1048576, large.size() - at)));
    EXPECT_EQ(chunked.result(), portable(large));
}
