#include "tests/conformance/sha256.h"

#ifdef _WIN32
#include <windows.h>
#include <bcrypt.h>
#else
#include <nettle/sha2.h>
#endif

namespace conformance {

std::string sha256Hex(const void* data, std::size_t size) {
    unsigned char digest[32] = {};
#ifdef _WIN32
    BCryptHash(BCRYPT_SHA256_ALG_HANDLE, nullptr, 0, static_cast<PUCHAR>(const_cast<void*>(data)), ULONG(size), digest,
               sizeof digest);
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
