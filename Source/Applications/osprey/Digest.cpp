#include "Digest.h"

#include <dlfcn.h>
#include <openssl/evp.h>
#include <openssl/opensslv.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

namespace
{

const size_t PIECE = 65536;

// The cryptographic library, loaded when the first digest is made: a server never makes one, and
// does without the 2 MiB that the library takes.
class CCrypto final
{
public:
    static const CCrypto& Get()
    {
        static const CCrypto crypto;
        return crypto;
    }
    bool IsLoaded() const
    {
        return m_fnNew != nullptr && m_fnFree != nullptr && m_fnInit != nullptr &&
               m_fnUpdate != nullptr && m_fnFinal != nullptr && m_fnSha256 != nullptr;
    }

    decltype(&EVP_MD_CTX_new) m_fnNew = nullptr;
    decltype(&EVP_MD_CTX_free) m_fnFree = nullptr;
    decltype(&EVP_DigestInit_ex) m_fnInit = nullptr;
    decltype(&EVP_DigestUpdate) m_fnUpdate = nullptr;
    decltype(&EVP_DigestFinal_ex) m_fnFinal = nullptr;
    decltype(&EVP_sha256) m_fnSha256 = nullptr;

private:
    CCrypto()
    {
        // The one whose header this was compiled with, see dlopen(3). It stays until the end.
        const std::string strName = "libcrypto.so." + std::to_string(OPENSSL_SHLIB_VERSION);
        void* pLibrary = dlopen(strName.c_str(), RTLD_LAZY | RTLD_LOCAL);
        if (pLibrary != nullptr)
        {
            Find(pLibrary, "EVP_MD_CTX_new", m_fnNew);
            Find(pLibrary, "EVP_MD_CTX_free", m_fnFree);
            Find(pLibrary, "EVP_DigestInit_ex", m_fnInit);
            Find(pLibrary, "EVP_DigestUpdate", m_fnUpdate);
            Find(pLibrary, "EVP_DigestFinal_ex", m_fnFinal);
            Find(pLibrary, "EVP_sha256", m_fnSha256);
        }
    }
    template <typename TFunction>
    static void Find(void* pLibrary, const char* pszName, TFunction& fnFound)
    {
        fnFound = reinterpret_cast<TFunction>(dlsym(pLibrary, pszName));
    }
};

void Free(EVP_MD_CTX* pContext)
{
    CCrypto::Get().m_fnFree(pContext);
}

}  // namespace

struct CDigest::CContext
{
    CContext() : m_pContext(nullptr, Free)
    {
        const CCrypto& crypto = CCrypto::Get();
        if (crypto.IsLoaded())
        {
            m_pContext.reset(crypto.m_fnNew());
            m_bGood =
                m_pContext && crypto.m_fnInit(m_pContext.get(), crypto.m_fnSha256(), nullptr) == 1;
        }
    }

    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> m_pContext;
    bool m_bGood = false;
    std::vector<char> m_listPiece;
};

CDigest::CDigest() : m_pContext(std::make_unique<CContext>()) {}

CDigest::~CDigest() = default;

void CDigest::Add(const void* pData, size_t nSize)
{
    m_pContext->m_bGood =
        m_pContext->m_bGood &&
        CCrypto::Get().m_fnUpdate(m_pContext->m_pContext.get(), pData, nSize) == 1;
}

bool CDigest::AddFile(int nFile, Orb_U64 ullEnd)
{
    std::vector<char>& listPiece = m_pContext->m_listPiece;
    listPiece.resize(PIECE);
    while (m_ullPosition < ullEnd)
    {
        const size_t nWanted =
            static_cast<size_t>(std::min<Orb_U64>(PIECE, ullEnd - m_ullPosition));
        const ssize_t n =
            pread(nFile, listPiece.data(), nWanted, static_cast<off_t>(m_ullPosition));
        if (n < 0 && errno == EINTR)
        {
            continue;
        }
        if (n <= 0)
        {
            return n == 0;
        }
        Add(listPiece.data(), static_cast<size_t>(n));
        m_ullPosition += static_cast<Orb_U64>(n);
    }
    return true;
}

std::string CDigest::Finish()
{
    unsigned char pBytes[EVP_MAX_MD_SIZE];
    unsigned int dwSize = 0;
    if (!m_pContext->m_bGood ||
        CCrypto::Get().m_fnFinal(m_pContext->m_pContext.get(), pBytes, &dwSize) != 1)
    {
        return std::string();
    }
    m_pContext->m_bGood = false;
    std::string strHex;
    for (unsigned int i = 0; i < dwSize; ++i)
    {
        char szByte[4];
        snprintf(szByte, sizeof szByte, "%02x", pBytes[i]);
        strHex += szByte;
    }
    return strHex;
}

std::string DigestOf(const std::vector<std::string>& listTexts)
{
    CDigest digest;
    for (const std::string& strText : listTexts)
    {
        const std::string strCounted = std::to_string(strText.size()) + ":" + strText;
        digest.Add(strCounted.data(), strCounted.size());
    }
    return digest.Finish();
}
