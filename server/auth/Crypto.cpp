#include "auth/Crypto.h"

#include <openssl/hmac.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <stdexcept>

namespace vocle::server {

std::string sha256Hex(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("SHA-256 failed");
    }
    static const char* hex = "0123456789abcdef";
    std::string out;
    out.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
        out.push_back(hex[digest[i] >> 4]);
        out.push_back(hex[digest[i] & 15]);
    }
    return out;
}

std::string randomBytes(size_t count) {
    std::string out(count, '\0');
    if (count > 0 && RAND_bytes(reinterpret_cast<unsigned char*>(out.data()), static_cast<int>(count)) != 1) {
        throw std::runtime_error("The random number generator failed");
    }
    return out;
}

namespace {
std::string base64Url(std::string_view raw) {
    static const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string out;
    uint32_t buffer = 0;
    int bits = 0;
    for (unsigned char c : raw) {
        buffer = (buffer << 8) | c;
        bits += 8;
        while (bits >= 6) {
            bits -= 6;
            out.push_back(alphabet[(buffer >> bits) & 63]);
        }
    }
    if (bits > 0) out.push_back(alphabet[(buffer << (6 - bits)) & 63]);
    return out;
}
}  // namespace

std::string randomToken() {
    return base64Url(randomBytes(32));
}

std::string derivedToken(std::string_view key, std::string_view label) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
              reinterpret_cast<const unsigned char*>(label.data()), label.size(), digest, &length)) {
        throw std::runtime_error("HMAC-SHA256 failed");
    }
    return base64Url(std::string_view(reinterpret_cast<const char*>(digest), length));
}

std::string randomDigits(int digits) {
    std::string out;
    while (static_cast<int>(out.size()) < digits) {
        const std::string raw = randomBytes(1);
        const auto value = static_cast<unsigned char>(raw[0]);
        if (value >= 250) continue;  // rejection keeps the digits uniform
        out.push_back(static_cast<char>('0' + value % 10));
    }
    return out;
}

bool constantTimeEquals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    return CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace vocle::server
