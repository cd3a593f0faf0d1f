#include "tests/conformance/sha256.h"

#if defined(_WIN32)
#include <windows.h>
#include <bcrypt.h>
#elif defined(__EMSCRIPTEN__)
#include <emscripten/emscripten.h>
#else
#include <nettle/sha2.h>
#endif

#ifdef __EMSCRIPTEN__
// Node's crypto module (the check runs under Node).
EM_JS(void, nodeSha256, (const void* data, std::size_t size, unsigned char* digest), {
    const hash = require('crypto').createHash('sha256');
    hash.update(HEAPU8.subarray(data, data + size));
    HEAPU8.set(hash.digest(), digest);
});
#endif

namespace conformance {

std::string sha256Hex(const void* data, std::size_t size) {
    unsigned char digest[32] = {};
#ifdef _WIN32
    static BCRYPT_ALG_HANDLE algorithm = [] {
        BCRYPT_ALG_HANDLE h = nullptr;
        BCryptOpenAlgorithmProvider(&h, BCRYPT_SHA256_ALGORITHM, nullptr, 0);
        return h;
    }();
    BCRYPT_HASH_HANDLE hash = nullptr;
    BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0);
    BCryptHashData(hash, static_cast<PUCHAR>(const_cast<void*>(data)), ULONG(size), 0);
    BCryptFinishHash(hash, digest, sizeof digest, 0);
    BCryptDestroyHash(hash);
#elif defined(__EMSCRIPTEN__)
    nodeSha256(data, size, digest);
#else
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, size, static_cast<const std::uint8_t*>(data));
    sha256_digest(&context, sizeof digest, digest);
#endif
    static const char hex[] = "0123456789abcdef";
    std::string text(64, '0');
    for (int i = 0; i < 32; ++i) text[2 * i] = hex[digest[i] >> 4], text[2 * i + 1] = hex[digest[i] & 15];
    return text;
}

}  // namespace conformance
