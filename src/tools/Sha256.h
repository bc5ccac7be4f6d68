#pragma once

// Incremental SHA-256 for fingerprinting footage. On processors with the SHA
// extensions (x86) the compression runs on them, several times faster than a
// portable implementation, so that hashing a take costs about what reading it
// does; elsewhere the platform's portable implementation is used. The digest
// is the same either way.

#include <QByteArray>
#include <QByteArrayView>
#include <QCryptographicHash>

#include <array>
#include <cstdint>
#include <memory>

namespace velum {

class Sha256 {
public:
    Sha256();

    void addData(QByteArrayView bytes);
    // The 32-byte digest. The object is finished afterwards.
    QByteArray result();

    // Whether this processor hashes with its SHA extensions.
    static bool isAccelerated();

private:
    bool m_accelerated;
    std::array<std::uint32_t, 8> m_state{};
    std::array<unsigned char, 64> m_block{};
    std::size_t m_blockUsed = 0;
    std::uint64_t m_totalBytes = 0;
    std::unique_ptr<QCryptographicHash> m_portable;
};

} // namespace velum
