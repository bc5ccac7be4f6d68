#pragma once

// The fingerprint of a file's bytes, which names a clip (`clipId`) and a
// style video: the lower-case hexadecimal SHA-256, 64 characters. The same
// bytes always give the same identifier, wherever the file lies and whatever
// it is called.

#include "tools/Cancellation.h"

#include <QCoroTask>
#include <QString>
#include <QUrl>

#include <stdexcept>

namespace velum::ContentHash {

// The file could not be opened or read to its end.
class ReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads the file in chunks of 1,048,576 bytes, so that memory stays flat
// however large the footage. Throws ReadError, and CancelledError between
// chunks once `cancellation` is set.
QString videoIDBlocking(const QUrl &url, const Cancellation &cancellation = Cancellation());

// The same on the utility pool.
QCoro::Task<QString> videoID(QUrl url, Cancellation cancellation = Cancellation());

} // namespace velum::ContentHash
