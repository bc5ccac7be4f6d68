#pragma once

// Incremental SHA-256 for fingerprinting footage, on the system's
// cryptography library, which hashes with the processor's SHA extensions
// where it has them, so that hashing a take costs about what reading it does.

#include <QByteArray>
#include <QByteArrayView>

#include <memory>

namespace velum {

class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void addData(QByteArrayView bytes);
    // The 32-byte digest. The object is finished afterwards.
    QByteArray result();

private:
    struct Context;
    std::unique_ptr<Context> m_context;
};

} // namespace velum
