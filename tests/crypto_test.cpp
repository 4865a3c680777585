// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "CryptoHelper/CryptoHelper.h"
#include "CryptoHelper/RandomFill.h"
#include "platform/Random.h"

namespace {

using Kelta::CryptoHelper;

const char kCountingHex[] = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
const char kCountingBase64[] = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";

std::string hexOf(const unsigned char* bytes, std::size_t size) {
  std::string hex;
  for (std::size_t i = 0; i < size; ++i) {
    hex += "0123456789abcdef"[bytes[i] >> 4];
    hex += "0123456789abcdef"[bytes[i] & 0xF];
  }
  return hex;
}

std::string taken(unsigned char* block, int length) {
  const std::unique_ptr<unsigned char, void (*)(void*)> owner(block, &std::free);
  return block ? std::string(reinterpret_cast<char*>(block), static_cast<std::size_t>(length)) : std::string("(null)");
}

std::string keyOf(std::string text) {
  unsigned char* key = nullptr;
  CryptoHelper().setKey(&key, text);
  const std::string bytes = taken(key, 32);
  return hexOf(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

std::string encrypted(std::string plain, std::string key, const std::string* iv = nullptr) {
  int length = static_cast<int>(plain.size());
  auto* in = reinterpret_cast<unsigned char*>(&plain[0]);
  std::string start = iv ? *iv : "";
  auto* vector = reinterpret_cast<unsigned char*>(&start[0]);
  unsigned char* const block = iv ? CryptoHelper().encryptBufferAES(in, &length, key, vector, 16)
                                  : CryptoHelper().encryptBufferAES(in, &length, key);
  return taken(block, length);
}

std::string decryptedBuffer(std::string cipher, std::string key) {
  int length = static_cast<int>(cipher.size());
  unsigned char* const block =
      CryptoHelper().decryptBufferAES(reinterpret_cast<unsigned char*>(&cipher[0]), key, &length);
  return taken(block, length);
}

TEST(CryptoKey, TextFormsGiveTheirKeys) {
  const struct {
    std::string text;
    const char* key;
  } rows[] = {
      {kCountingHex, kCountingHex},
      {"000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F", kCountingHex},
      {kCountingBase64, kCountingHex},
      {std::string(kCountingBase64, 43), kCountingHex},
      {"yO0SN1yBpsvwFTpfhKnO8xg9Yoes0fYbQGWKr9T5HkM=",
       "c8ed12375c81a6cbf0153a5f84a9cef3183d6287acd1f61b40658aafd4f91e43"},
      {std::string(44, '/'), "ffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff"},
      {"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHg==",
       "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e00"},
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"correct horse", "4104d36f8da2c254349f85836793ebe029e0c957063a34c91c2e9203187b5631"},
      {std::string("correct horse\0battery", 21), "4104d36f8da2c254349f85836793ebe029e0c957063a34c91c2e9203187b5631"},
      {std::string(63, '0'), "c7dc2d25e306355c97af916e8d50b27a948506a74c6b2dd1b29e2b63d0a3aa8c"},
      {std::string(65, '0'), "e531ef0f962409170917abf9de3287afec23dd1c42c9e1fea66c5feab99e8f7c"},
      {std::string(42, 'A'), "d85ce644bf4e82cee032eaa5c3d9030a090276d9bae3703112bdfc6f8fdde307"},
      {"=" + std::string(43, 'A'), "37354781c8f75352c3c23a35e8102caa2586f9879faccc7c1c1680e9ebf95672"},
      {std::string(44, '='), "fb70b4aad69eeead765ed4c61199ebdf99b8ad388ada1f4573bc8c9ce8889fd4"},
      {std::string(41, 'A') + "===", "547e4928cd1e59ad0e7c21924e36d40100a17b4a707e02c933fc064fe6799507"},
      {"AAAA=" + std::string(39, 'A'), "f6cbe11cff2a955bd70d021209e54f5fde24750f06e312edcba93fcc264ea875"},
  };
  for (const auto& row : rows) EXPECT_EQ(keyOf(row.text), row.key) << row.text;
}

TEST(CryptoBuffer, AgreesWithPublishedVector) {
  const std::string iv("\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f", 16);
  const std::string plain("\x6b\xc1\xbe\xe2\x2e\x40\x9f\x96\xe9\x3d\x7e\x11\x73\x93\x17\x2a", 16);
  const std::string result = encrypted(plain, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", &iv);
  ASSERT_EQ(result.size(), 48u);
  EXPECT_EQ(result.substr(0, 16), iv);
  EXPECT_EQ(hexOf(reinterpret_cast<const unsigned char*>(result.data()) + 16, 16), "f58c4c04d6e5f1ba779eabfb5f7bfbd6");
  EXPECT_EQ(encrypted("some text", kCountingHex, &iv), encrypted("some text", kCountingBase64, &iv));
}

TEST(CryptoBuffer, ComesBackForEveryLengthUnderAFreshIv) {
  for (const std::size_t size : {0u, 1u, 15u, 16u, 17u, 31u, 32u, 1000u, 100000u}) {
    std::string plain(size, 'x');
    for (std::size_t i = 0; i < size; ++i) plain[i] = static_cast<char>(i * 7);
    const std::string once = encrypted(plain, "pass");
    const std::string again = encrypted(plain, "pass");
    EXPECT_EQ(once.size(), 16 + 16 * (size / 16 + 1));
    EXPECT_NE(once.substr(0, 16), again.substr(0, 16));
    EXPECT_NE(once.substr(16), again.substr(16));
    EXPECT_EQ(decryptedBuffer(once, "pass"), plain);
    std::string key = "pass";
    std::string out;
    EXPECT_TRUE(CryptoHelper().decrypted(again, key, out));
    EXPECT_EQ(out, plain);
  }
  EXPECT_TRUE(Kelta::platform::StrongRandom().acquired());
  unsigned char* block = nullptr;
  EXPECT_FALSE(CryptoHelper().genRandomBuffer(&block, -1));
  EXPECT_EQ(block, nullptr);
}

// The key, IV and cipher text are fixed, so that the padding under the wrong key is known to be wrong.
TEST(CryptoBuffer, WrongKeyOrDamageIsToldByDecryptedAlone) {
  const std::string iv(16, 'i');
  const std::string cipher = encrypted("attack at dawn, on foot", kCountingHex, &iv);
  EXPECT_NE(decryptedBuffer(cipher, "wrong"), "(null)");
  EXPECT_LE(decryptedBuffer(cipher, "wrong").size(), cipher.size());
  EXPECT_EQ(decryptedBuffer(cipher.substr(0, 16), kCountingHex), "");
  const std::pair<std::string, std::string> rows[] = {{cipher, "wrong"},
                                                      {cipher.substr(0, cipher.size() - 1), kCountingHex},
                                                      {cipher + "x", kCountingHex},
                                                      {cipher.substr(0, 32), kCountingHex},
                                                      {iv, kCountingHex},
                                                      {"short", kCountingHex},
                                                      {"", kCountingHex}};
  for (const auto& row : rows) {
    std::string key = row.second;
    std::string out = "left over";
    EXPECT_FALSE(CryptoHelper().decrypted(row.first, key, out)) << row.first.size();
    EXPECT_EQ(out, "");
  }
}

/// What a source does when it is asked, and what must come of it; no byte: nothing.
struct Behaviour {
  bool acquires, fills, seeded, generates;
  int words;  ///< stirring words until the source fails
  unsigned char byte;
};

class ScriptedSource : public Kelta::crypto::RandomSource {
public:
  explicit ScriptedSource(const Behaviour& behaviour) : does_(behaviour) {}
  double entropy = 0;
  bool seededHere = false;

  bool acquired() override { return does_.acquires; }
  bool fill(unsigned char* buffer, std::size_t size) override { return give(does_.fills, buffer, size, 0xAA); }
  bool stirringWord(std::uint32_t& word) override {
    word = 0x42424242;
    return does_.words-- > 0;
  }
  bool generatorSeeded() override { return does_.seeded; }
  void seedGenerator(const void*, std::size_t) override { seededHere = true; }
  void addToGenerator(const void*, std::size_t, double added) override { entropy += added; }
  bool generate(unsigned char* buffer, std::size_t size) override {
    EXPECT_EQ(!does_.seeded, seededHere && entropy > 7.9) << "a generator that was not seeded";
    return give(does_.generates, buffer, size, 0xBB);
  }

private:
  static bool give(bool result, unsigned char* buffer, std::size_t size, unsigned char byte) {
    if (result) std::fill(buffer, buffer + size, byte);
    return result;
  }
  Behaviour does_;
};

TEST(CryptoRandom, SourcesAreTriedInOrderAndNoFailureLooksLikeSuccess) {
  const Behaviour rows[] = {
      {true, true, false, true, 100, 0xAA},  // the strong source
      {true, false, true, true, 100, 0},     // it fails
      {false, true, true, true, 0, 0xBB},    // none: the generator
      {false, true, false, true, 2, 0xBB},   // which is seeded first
      {false, true, false, true, 1, 0},      // as far as that goes
      {false, true, true, false, 2, 0x42},   // it fails: words alone
      {false, true, true, false, 1, 0},      // too few of them
  };
  for (const Behaviour& row : rows) {
    ScriptedSource source(row);
    std::vector<unsigned char> buffer(7, 0);
    const auto at = &row - rows;
    ASSERT_EQ(Kelta::crypto::genRandomBuffer(source, buffer.data(), buffer.size()), row.byte != 0) << at;
    if (row.byte == 0) continue;
    EXPECT_EQ(buffer, std::vector<unsigned char>(7, row.byte)) << at;
  }
}

}  // namespace
