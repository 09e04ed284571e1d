#include "zip/AesAuth.h"

#include "zip/ZipHandle.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace orvKestrel::aesauth {
namespace {

constexpr std::size_t kCodeLen = 10;     // the stored code: the first bytes of an HMAC-SHA1
constexpr std::size_t kVerifierLen = 2;  // the password check that follows the salt
constexpr int kIterations = 1000;

struct MacFree {
  void operator()(EVP_MAC* m) const { EVP_MAC_free(m); }
};
struct MacCtxFree {
  void operator()(EVP_MAC_CTX* c) const { EVP_MAC_CTX_free(c); }
};
using MacCtx = std::unique_ptr<EVP_MAC_CTX, MacCtxFree>;

std::size_t KeyLen(zip_uint16_t method) {
  switch (method) {
    case ZIP_EM_AES_128: return 16;
    case ZIP_EM_AES_192: return 24;
    case ZIP_EM_AES_256: return 32;
    default: return 0;
  }
}

// Reads exactly n bytes (never past them: the library reports its CRC error on the read after).
bool ReadExact(zip_file_t* zf, unsigned char* out, std::size_t n) {
  while (n > 0) {
    const zip_int64_t got = zip_fread(zf, out, n);
    if (got <= 0) return false;
    out += got;
    n -= static_cast<std::size_t>(got);
  }
  return true;
}

MacCtx HmacSha1(const unsigned char* key, std::size_t keyLen) {
  const std::unique_ptr<EVP_MAC, MacFree> hmac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
  MacCtx ctx(hmac ? EVP_MAC_CTX_new(hmac.get()) : nullptr);
  char digest[] = "SHA1";
  const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string("digest", digest, 0),
                               OSSL_PARAM_construct_end()};
  if (ctx && EVP_MAC_init(ctx.get(), key, keyLen, params) != 1) ctx.reset();
  return ctx;
}

// Feeds the encrypted data (length bytes) to mac and reads the code that follows it.
bool HashData(zip_file_t* zf, EVP_MAC_CTX* mac, std::uint64_t length,
              std::array<unsigned char, kCodeLen>& code) {
  std::vector<unsigned char> buf(1 << 16);
  while (length > 0) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(length, buf.size()));
    if (!ReadExact(zf, buf.data(), n) || EVP_MAC_update(mac, buf.data(), n) != 1) return false;
    length -= n;
  }
  return ReadExact(zf, code.data(), code.size());
}

}  // namespace

bool Authentic(zip_t* za, zip_uint64_t index, const zip_stat_t& zs, const std::string& password) {
  const std::size_t keyLen = KeyLen(zs.encryption_method);
  const std::size_t saltLen = keyLen / 2;
  if (keyLen == 0 || password.empty() || !(zs.valid & ZIP_STAT_COMP_SIZE) ||
      zs.comp_size < saltLen + kVerifierLen + kCodeLen) {
    return false;
  }
  ziphandle::ZipFilePtr zf(zip_fopen_index(za, index, ZIP_FL_ENCRYPTED));
  std::array<unsigned char, 16 + kVerifierLen> head{};
  if (!zf || !ReadExact(zf.get(), head.data(), saltLen + kVerifierLen)) return false;
  // Encryption key, authentication key and password verifier, in this order.
  std::vector<unsigned char> keys(2 * keyLen + kVerifierLen);
  if (PKCS5_PBKDF2_HMAC_SHA1(password.data(), static_cast<int>(password.size()), head.data(),
                             static_cast<int>(saltLen), kIterations,
                             static_cast<int>(keys.size()), keys.data()) != 1 ||
      CRYPTO_memcmp(keys.data() + 2 * keyLen, head.data() + saltLen, kVerifierLen) != 0) {
    return false;
  }
  const MacCtx mac = HmacSha1(keys.data() + keyLen, keyLen);
  std::array<unsigned char, kCodeLen> stored{};
  const std::uint64_t length = zs.comp_size - saltLen - kVerifierLen - kCodeLen;
  if (!mac || !HashData(zf.get(), mac.get(), length, stored)) return false;
  std::array<unsigned char, 20> sum{};
  std::size_t sumLen = 0;
  if (EVP_MAC_final(mac.get(), sum.data(), &sumLen, sum.size()) != 1 || sumLen < kCodeLen) {
    return false;
  }
  return CRYPTO_memcmp(sum.data(), stored.data(), kCodeLen) == 0;
}

}  // namespace orvKestrel::aesauth
