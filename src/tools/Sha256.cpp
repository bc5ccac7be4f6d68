#include "tools/Sha256.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace velum {

struct Sha256::Context {
    EVP_MD_CTX *context = nullptr;
    bool finished = false;
};

Sha256::Sha256()
    : m_context(std::make_unique<Context>())
{
    m_context->context = EVP_MD_CTX_new();
    if (!m_context->context || EVP_DigestInit_ex(m_context->context, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available from the cryptography library");
}

Sha256::~Sha256()
{
    EVP_MD_CTX_free(m_context->context);
}

void Sha256::addData(QByteArrayView bytes)
{
    if (m_context->finished || bytes.isEmpty())
        return;
    EVP_DigestUpdate(m_context->context, bytes.data(), static_cast<std::size_t>(bytes.size()));
}

QByteArray Sha256::result()
{
    QByteArray digest(EVP_MAX_MD_SIZE, Qt::Uninitialized);
    unsigned int length = 0;
    if (!m_context->finished) {
        EVP_DigestFinal_ex(m_context->context, reinterpret_cast<unsigned char *>(digest.data()), &length);
        m_context->finished = true;
    }
    digest.truncate(static_cast<qsizetype>(length));
    return digest;
}

} // namespace velum
