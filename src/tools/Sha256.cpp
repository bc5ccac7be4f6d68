#include "tools/Sha256.h"

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>
#define VELUM_SHA_X86 1
#endif

namespace velum {

namespace {

constexpr std::array<std::uint32_t, 8> initialState{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                                    0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

#ifdef VELUM_SHA_X86

alignas(16) constexpr std::uint32_t roundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

bool cpuHasShaExtensions()
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d))
        return false;
    const bool ssse3 = (c & (1u << 9)) != 0;
    const bool sse41 = (c & (1u << 19)) != 0;
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d))
        return false;
    const bool sha = (b & (1u << 29)) != 0;
    return ssse3 && sse41 && sha;
}

// Compresses whole 64-byte blocks. The eight state words travel as two
// vectors, ABEF and CDGH, as the round instructions want them; each loop step
// does four rounds, and the message schedule of later steps is computed
// alongside (msg1 four steps ahead, msg2 one step ahead).
__attribute__((target("sha,sse4.1,ssse3"))) void compressBlocks(std::uint32_t *state, const unsigned char *data,
                                                                 std::size_t blocks)
{
    const __m128i byteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bLL, 0x0405060700010203LL);

    __m128i tmp = _mm_loadu_si128(reinterpret_cast<const __m128i *>(state));
    __m128i state1 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(state + 4));
    tmp = _mm_shuffle_epi32(tmp, 0xB1);          // CDAB
    state1 = _mm_shuffle_epi32(state1, 0x1B);    // EFGH
    __m128i state0 = _mm_alignr_epi8(tmp, state1, 8); // ABEF
    state1 = _mm_blend_epi16(state1, tmp, 0xF0);      // CDGH

    for (; blocks > 0; --blocks, data += 64) {
        const __m128i savedAbef = state0;
        const __m128i savedCdgh = state1;
        __m128i w[4];
        for (int i = 0; i < 16; ++i) {
            if (i < 4)
                w[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(data + 16 * i)), byteSwap);
            __m128i message =
                _mm_add_epi32(w[i & 3], _mm_load_si128(reinterpret_cast<const __m128i *>(roundConstants + 4 * i)));
            state1 = _mm_sha256rnds2_epu32(state1, state0, message);
            if (i >= 3 && i <= 14) {
                __m128i &next = w[(i + 1) & 3];
                next = _mm_add_epi32(next, _mm_alignr_epi8(w[i & 3], w[(i + 3) & 3], 4));
                next = _mm_sha256msg2_epu32(next, w[i & 3]);
            }
            message = _mm_shuffle_epi32(message, 0x0E);
            state0 = _mm_sha256rnds2_epu32(state0, state1, message);
            if (i >= 1 && i <= 12)
                w[(i + 3) & 3] = _mm_sha256msg1_epu32(w[(i + 3) & 3], w[i & 3]);
        }
        state0 = _mm_add_epi32(state0, savedAbef);
        state1 = _mm_add_epi32(state1, savedCdgh);
    }

    tmp = _mm_shuffle_epi32(state0, 0x1B);       // FEBA
    state1 = _mm_shuffle_epi32(state1, 0xB1);    // DCHG
    state0 = _mm_blend_epi16(tmp, state1, 0xF0); // DCBA
    state1 = _mm_alignr_epi8(state1, tmp, 8);    // ABEF
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state), state0);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state + 4), state1);
}

#else

bool cpuHasShaExtensions() { return false; }
void compressBlocks(std::uint32_t *, const unsigned char *, std::size_t) {}

#endif

} // namespace

bool Sha256::isAccelerated()
{
    static const bool accelerated = cpuHasShaExtensions();
    return accelerated;
}

Sha256::Sha256() : m_accelerated(isAccelerated()), m_state(initialState)
{
    if (!m_accelerated)
        m_portable = std::make_unique<QCryptographicHash>(QCryptographicHash::Sha256);
}

void Sha256::addData(QByteArrayView bytes)
{
    if (!m_accelerated) {
        m_portable->addData(bytes);
        return;
    }
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.data());
    std::size_t size = static_cast<std::size_t>(bytes.size());
    m_totalBytes += size;

    if (m_blockUsed > 0) {
        const std::size_t take = std::min(size, m_block.size() - m_blockUsed);
        std::memcpy(m_block.data() + m_blockUsed, data, take);
        m_blockUsed += take;
        data += take;
        size -= take;
        if (m_blockUsed < m_block.size())
            return;
        compressBlocks(m_state.data(), m_block.data(), 1);
        m_blockUsed = 0;
    }
    const std::size_t blocks = size / 64;
    if (blocks > 0)
        compressBlocks(m_state.data(), data, blocks);
    data += blocks * 64;
    size -= blocks * 64;
    if (size > 0) {
        std::memcpy(m_block.data(), data, size);
        m_blockUsed = size;
    }
}

QByteArray Sha256::result()
{
    if (!m_accelerated)
        return m_portable->result();

    // Padding: a one bit, zeros up to 56 bytes into a block, then the length
    // in bits, big-endian.
    const std::uint64_t bits = m_totalBytes * 8;
    m_block[m_blockUsed++] = 0x80;
    if (m_blockUsed > 56) {
        std::memset(m_block.data() + m_blockUsed, 0, m_block.size() - m_blockUsed);
        compressBlocks(m_state.data(), m_block.data(), 1);
        m_blockUsed = 0;
    }
    std::memset(m_block.data() + m_blockUsed, 0, 56 - m_blockUsed);
    for (int i = 0; i < 8; ++i)
        m_block[56 + static_cast<std::size_t>(i)] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    compressBlocks(m_state.data(), m_block.data(), 1);
    m_blockUsed = 0;

    QByteArray digest(32, Qt::Uninitialized);
    for (std::size_t i = 0; i < 8; ++i) {
        for (std::size_t j = 0; j < 4; ++j)
            digest[static_cast<qsizetype>(4 * i + j)] = static_cast<char>(m_state[i] >> (24 - 8 * j));
    }
    return digest;
}

} // namespace velum
