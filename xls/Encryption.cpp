#include "xls/Encryption.h"

#include <nettle/arcfour.h>
#include <nettle/md5.h>
#include <nettle/sha1.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "xls/Records.h"
#include "xls/Strings.h"

namespace xls {

const char kDefaultPassword[] = "VelvetSweatshop";

const char* EncryptionName(Encryption kind) {
  switch (kind) {
    case Encryption::kNone:
      return "none";
    case Encryption::kXor:
      return "XOR obfuscation";
    case Encryption::kRc4:
      return "RC4";
    case Encryption::kRc4CryptoApi:
      return "RC4 CryptoAPI";
  }
  return "unknown";
}

namespace crypto {

std::string XorPasswordBytes(std::string_view utf8) {
  std::vector<std::uint16_t> units;
  Utf8ToUtf16(utf8, &units);
  std::string bytes;
  for (std::uint16_t u : units) {
    if (bytes.size() == 15) break;
    bytes.push_back(static_cast<char>((u & 0xFF) != 0 ? u & 0xFF : u >> 8));
  }
  return bytes;
}

std::uint16_t XorVerifier(std::string_view bytes) {
  // The length, then the password, folded from the last byte to the first.
  unsigned verifier = 0;
  auto fold = [&verifier](unsigned byte) {
    verifier = (((verifier >> 14) & 1) | ((verifier << 1) & 0x7FFF)) ^ byte;
  };
  for (std::size_t i = bytes.size(); i-- > 0;) fold(static_cast<std::uint8_t>(bytes[i]));
  fold(static_cast<unsigned>(bytes.size()));
  return static_cast<std::uint16_t>(verifier ^ 0xCE4B);
}

namespace {

constexpr std::uint16_t kInitialCode[15] = {0xE1F0, 0x1D0F, 0xCC9C, 0x84C0, 0x110C,
                                            0x0E10, 0xF1CE, 0x313E, 0x1872, 0xE139,
                                            0xD40F, 0x84F9, 0x280C, 0xA96A, 0x4EC3};
constexpr std::uint16_t kXorMatrix[105] = {
    0xAEFC, 0x4DD9, 0x9BB2, 0x2745, 0x4E8A, 0x9D14, 0x2A09, 0x7B61, 0xF6C2, 0xFDA5, 0xEB6B, 0xC6F7,
    0x9DCF, 0x2BBF, 0x4563, 0x8AC6, 0x05AD, 0x0B5A, 0x16B4, 0x2D68, 0x5AD0, 0x0375, 0x06EA, 0x0DD4,
    0x1BA8, 0x3750, 0x6EA0, 0xDD40, 0xD849, 0xA0B3, 0x5147, 0xA28E, 0x553D, 0xAA7A, 0x44D5, 0x6F45,
    0xDE8A, 0xAD35, 0x4A4B, 0x9496, 0x390D, 0x721A, 0xEB23, 0xC667, 0x9CEF, 0x29FF, 0x53FE, 0xA7FC,
    0x5FD9, 0x47D3, 0x8FA6, 0x0F6D, 0x1EDA, 0x3DB4, 0x7B68, 0xF6D0, 0xB861, 0x60E3, 0xC1C6, 0x93AD,
    0x377B, 0x6EF6, 0xDDEC, 0x45A0, 0x8B40, 0x06A1, 0x0D42, 0x1A84, 0x3508, 0x6A10, 0xAA51, 0x4483,
    0x8906, 0x022D, 0x045A, 0x08B4, 0x1168, 0x76B4, 0xED68, 0xCAF1, 0x85C3, 0x1BA7, 0x374E, 0x6E9C,
    0x3730, 0x6E60, 0xDCC0, 0xA9A1, 0x4363, 0x86C6, 0x1DAD, 0x3331, 0x6662, 0xCCC4, 0x89A9, 0x0373,
    0x06E6, 0x0DCC, 0x1021, 0x2042, 0x4084, 0x8108, 0x1231, 0x2462, 0x48C4};
constexpr std::uint8_t kPad[15] = {0xBB, 0xFF, 0xFF, 0xBA, 0xFF, 0xFF, 0xB9, 0x80,
                                   0x00, 0xBE, 0x0F, 0x00, 0xBF, 0x0F, 0x00};

std::uint8_t RotateRight1(unsigned v) { return static_cast<std::uint8_t>((v >> 1) | (v << 7)); }

}  // namespace

std::uint16_t XorKey(std::string_view bytes) {
  unsigned key = kInitialCode[bytes.size() - 1];
  // Seven bits of each byte, last byte first, select rows of the matrix from its end.
  int element = 104;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    unsigned c = static_cast<std::uint8_t>(bytes[i]);
    for (int bit = 0; bit < 7; ++bit, --element) {
      if (c & 0x40) key ^= kXorMatrix[element];
      c <<= 1;
    }
  }
  return static_cast<std::uint16_t>(key);
}

std::array<std::uint8_t, 16> XorArray(std::string_view bytes) {
  const unsigned key = XorKey(bytes);
  const std::uint8_t high = static_cast<std::uint8_t>(key >> 8), low = key & 0xFF;
  // Even positions take the key's low byte, odd ones its high byte; the password fills the
  // front of the array and the pad its back.
  std::array<std::uint8_t, 16> out{};
  const std::size_t n = bytes.size();
  for (std::size_t i = 0; i < 16; ++i) {
    unsigned source;
    if (i < n) {
      source = static_cast<std::uint8_t>(bytes[i]);
    } else if (i == n && n % 2 == 1) {
      source = kPad[0];
    } else {
      source = kPad[i - n];
    }
    out[i] = RotateRight1(source ^ (i % 2 ? high : low));
  }
  return out;
}

std::vector<std::uint16_t> Rc4Password(std::string_view utf8) {
  std::vector<std::uint16_t> units;
  Utf8ToUtf16(utf8, &units);
  if (units.size() > 255) units.resize(255);
  return units;
}

namespace {

void AppendUtf16Le(const std::vector<std::uint16_t>& units, std::vector<std::uint8_t>* out) {
  for (std::uint16_t u : units) {
    out->push_back(static_cast<std::uint8_t>(u));
    out->push_back(static_cast<std::uint8_t>(u >> 8));
  }
}

}  // namespace

Rc4BlockKeys Rc4BlockKeys::Md5(const std::vector<std::uint16_t>& password,
                               const std::uint8_t salt[16]) {
  std::vector<std::uint8_t> pw;
  AppendUtf16Le(password, &pw);
  std::uint8_t h0[MD5_DIGEST_SIZE];
  md5_ctx ctx;
  md5_init(&ctx);
  md5_update(&ctx, pw.size(), pw.data());
  md5_digest(&ctx, sizeof h0, h0);
  // Sixteen copies of the hash's first five bytes and the salt.
  md5_init(&ctx);
  for (int i = 0; i < 16; ++i) {
    md5_update(&ctx, 5, h0);
    md5_update(&ctx, 16, salt);
  }
  Rc4BlockKeys keys;
  md5_digest(&ctx, 5, keys.hash_);
  return keys;
}

Rc4BlockKeys Rc4BlockKeys::CryptoApi(const std::vector<std::uint16_t>& password,
                                     const std::uint8_t salt[16], unsigned keyBits) {
  std::vector<std::uint8_t> pw;
  AppendUtf16Le(password, &pw);
  Rc4BlockKeys keys;
  keys.sha1_ = true;
  keys.keyBytes_ = keyBits / 8;
  sha1_ctx ctx;
  sha1_init(&ctx);
  sha1_update(&ctx, 16, salt);
  sha1_update(&ctx, pw.size(), pw.data());
  sha1_digest(&ctx, SHA1_DIGEST_SIZE, keys.hash_);
  return keys;
}

Rc4Key Rc4BlockKeys::ForBlock(std::uint32_t block) const {
  std::uint8_t b[4];
  PutU32(b, block);
  Rc4Key key{};
  key.size = 16;
  if (!sha1_) {
    md5_ctx ctx;
    md5_init(&ctx);
    md5_update(&ctx, 5, hash_);
    md5_update(&ctx, 4, b);
    md5_digest(&ctx, 16, key.bytes);
    return key;
  }
  sha1_ctx ctx;
  sha1_init(&ctx);
  sha1_update(&ctx, SHA1_DIGEST_SIZE, hash_);
  sha1_update(&ctx, 4, b);
  std::uint8_t h[SHA1_DIGEST_SIZE];
  sha1_digest(&ctx, sizeof h, h);
  std::memcpy(key.bytes, h, keyBytes_);
  if (keyBytes_ != 5) key.size = keyBytes_;  // 40 bits: the rest of 128 stays zero
  return key;
}

}  // namespace crypto

namespace {

using crypto::Rc4BlockKeys;
using crypto::Rc4Key;

constexpr std::uint16_t kFilePass = 0x002F;
constexpr std::size_t kRc4BlockSize = 1024;

bool StaysClear(std::uint16_t id) {
  switch (id) {
    case rec::kBof:
    case kFilePass:
    case 0x0194:  // USREXCL
    case 0x0195:  // FILELOCK
    case 0x00E1:  // INTERFACEHDR
    case 0x0196:  // RRDINFO
    case 0x0138:  // RRDHEAD
      return true;
    default:
      return false;
  }
}

std::string Hex(unsigned v) {
  char b[16];
  std::snprintf(b, sizeof b, "0x%04X", v);
  return b;
}

// What FILEPASS says: the scheme and what checks a password.
struct FilePass {
  Encryption kind = Encryption::kNone;
  std::uint16_t xorVerifier = 0;
  std::uint8_t salt[16] = {};
  std::uint8_t verifier[16] = {};
  std::uint8_t verifierHash[20] = {};
  unsigned keyBits = 128;
};

Status TooShort(std::size_t n, const char* scheme) {
  return Status::Corruption("FILEPASS record of " + std::to_string(n) + " bytes is too short for " +
                            scheme + " encryption");
}

// Excel 5/95 FILEPASS: key and verifier of XOR obfuscation. Excel 97: a scheme number first.
Status ParseFilePass(const std::uint8_t* p, std::size_t n, bool biff5, FilePass* out) {
  if (biff5) {
    if (n < 4) return TooShort(n, "XOR");
    out->kind = Encryption::kXor;
    out->xorVerifier = GetU16(p + 2);
    return Status::OK();
  }
  if (n < 2) return TooShort(n, "any");
  const std::uint16_t type = GetU16(p);
  if (type == 0) {
    if (n < 6) return TooShort(n, "XOR");
    out->kind = Encryption::kXor;
    out->xorVerifier = GetU16(p + 4);
    return Status::OK();
  }
  if (type != 1) {
    return Status::Unsupported("FILEPASS names encryption type " + Hex(type) +
                               "; only XOR obfuscation and RC4 are read");
  }
  if (n < 6) return TooShort(n, "RC4");
  const unsigned major = GetU16(p + 2), minor = GetU16(p + 4);
  if (major == 1 && minor == 1) {
    if (n < 6 + 48) return TooShort(n, "RC4");
    out->kind = Encryption::kRc4;
    std::memcpy(out->salt, p + 6, 16);
    std::memcpy(out->verifier, p + 22, 16);
    std::memcpy(out->verifierHash, p + 38, 16);
    return Status::OK();
  }
  if (major < 2 || major > 4 || minor != 2) {
    return Status::Unsupported("FILEPASS encryption version " + std::to_string(major) + "." +
                               std::to_string(minor) +
                               "; only RC4 (1.1) and RC4 CryptoAPI (2.2 to 4.2) are read");
  }
  // Flags, the header's size, the header (8 fixed fields and a provider name), then the
  // verifier: salt size, salt, verifier, hash size, hash.
  constexpr std::size_t kFixed = 14, kHeaderMin = 32, kVerifier = 60;
  if (n < kFixed + kHeaderMin + kVerifier) return TooShort(n, "RC4 CryptoAPI");
  const std::uint32_t headerSize = GetU32(p + 10);
  if (headerSize < kHeaderMin || headerSize > n - kFixed - kVerifier) {
    return Status::Corruption("FILEPASS encryption header size " + std::to_string(headerSize) +
                              " does not fit its record of " + std::to_string(n) + " bytes");
  }
  const std::uint8_t* h = p + kFixed;
  const std::uint32_t algorithm = GetU32(h + 8), hash = GetU32(h + 12);
  std::uint32_t keyBits = GetU32(h + 16);
  if ((algorithm != 0 && algorithm != 0x6801) || (hash != 0 && hash != 0x8004)) {
    return Status::Unsupported("FILEPASS names cipher " + Hex(algorithm) + " with hash " +
                               Hex(hash) + "; only RC4 with SHA-1 is read");
  }
  if (keyBits == 0) keyBits = 40;  // what the format says a zero means for RC4
  if (keyBits < 40 || keyBits > 128 || keyBits % 8 != 0) {
    return Status::Corruption("FILEPASS RC4 key of " + std::to_string(keyBits) +
                              " bits; 40 to 128 in steps of 8 are valid");
  }
  const std::uint8_t* v = h + headerSize;
  if (GetU32(v) != 16 || GetU32(v + 36) != 20) {
    return Status::Corruption("FILEPASS verifier with a salt of " + std::to_string(GetU32(v)) +
                              " bytes and a hash of " + std::to_string(GetU32(v + 36)) +
                              " bytes; RC4 CryptoAPI has 16 and 20");
  }
  out->kind = Encryption::kRc4CryptoApi;
  out->keyBits = keyBits;
  std::memcpy(out->salt, v + 4, 16);
  std::memcpy(out->verifier, v + 20, 16);
  std::memcpy(out->verifierHash, v + 40, 20);
  return Status::OK();
}

// The keys of one password, when it is the one FILEPASS was made with.
struct Keys {
  std::array<std::uint8_t, 16> xorArray{};
  Rc4BlockKeys rc4;
};

bool TryPassword(const FilePass& fp, const std::string& password, Keys* keys) {
  if (fp.kind == Encryption::kXor) {
    const std::string bytes = crypto::XorPasswordBytes(password);
    if (bytes.empty() || crypto::XorVerifier(bytes) != fp.xorVerifier) return false;
    keys->xorArray = crypto::XorArray(bytes);
    return true;
  }
  const std::vector<std::uint16_t> pw = crypto::Rc4Password(password);
  const bool md5 = fp.kind == Encryption::kRc4;
  keys->rc4 =
      md5 ? Rc4BlockKeys::Md5(pw, fp.salt) : Rc4BlockKeys::CryptoApi(pw, fp.salt, fp.keyBits);
  // The verifier and its hash are one RC4 run under block 0's key.
  const Rc4Key key = keys->rc4.ForBlock(0);
  arcfour_ctx rc4;
  arcfour_set_key(&rc4, key.size, key.bytes);
  std::uint8_t verifier[16], hash[20], expected[20];
  const std::size_t hashSize = md5 ? MD5_DIGEST_SIZE : SHA1_DIGEST_SIZE;
  arcfour_crypt(&rc4, 16, verifier, fp.verifier);
  arcfour_crypt(&rc4, hashSize, hash, fp.verifierHash);
  if (md5) {
    md5_ctx ctx;
    md5_init(&ctx);
    md5_update(&ctx, 16, verifier);
    md5_digest(&ctx, hashSize, expected);
  } else {
    sha1_ctx ctx;
    sha1_init(&ctx);
    sha1_update(&ctx, 16, verifier);
    sha1_digest(&ctx, hashSize, expected);
  }
  return std::memcmp(hash, expected, hashSize) == 0;
}

// RC4 over a stream in position order: the keystream of the current 1,024-byte block is
// made once, when the first encrypted byte in it is met.
class Rc4StreamCipher {
 public:
  explicit Rc4StreamCipher(const Rc4BlockKeys& keys) : keys_(keys) {}
  void Apply(std::uint8_t* stream, std::size_t pos, std::size_t n) {
    while (n > 0) {
      const std::size_t block = pos / kRc4BlockSize, offset = pos % kRc4BlockSize;
      if (!keyed_ || block != block_) Rekey(block);
      const std::size_t run = std::min(n, kRc4BlockSize - offset);
      for (std::size_t i = 0; i < run; ++i) stream[pos + i] ^= keystream_[offset + i];
      pos += run;
      n -= run;
    }
  }

 private:
  void Rekey(std::size_t block) {
    const Rc4Key key = keys_.ForBlock(static_cast<std::uint32_t>(block));
    arcfour_ctx rc4;
    arcfour_set_key(&rc4, key.size, key.bytes);
    std::memset(keystream_, 0, sizeof keystream_);
    arcfour_crypt(&rc4, sizeof keystream_, keystream_, keystream_);
    block_ = block;
    keyed_ = true;
  }
  const Rc4BlockKeys& keys_;
  bool keyed_ = false;
  std::size_t block_ = 0;
  std::uint8_t keystream_[kRc4BlockSize];
};

// Where FILEPASS is, when the globals substream has one: after the first BOF and before
// the first EOF. A stream that does not start with a BOF, or whose headers break before
// FILEPASS, has none here; the reader names what is wrong with it.
struct FilePassAt {
  bool found = false;
  bool biff5 = false;
  bool biff2to4 = false;
  std::size_t offset = 0;  // of the record header
};

FilePassAt FindFilePass(ByteSpan s) {
  FilePassAt at;
  if (s.size < 4) return at;
  const std::uint16_t bof = GetU16(s.data);
  if (bof == rec::kBof2 || bof == rec::kBof3 || bof == rec::kBof4) {
    at.biff2to4 = true;
  } else if (bof != rec::kBof) {
    return at;
  }
  const std::size_t bofSize = GetU16(s.data + 2);
  at.biff5 = bof == rec::kBof && bofSize >= 2 && s.size - 4 >= 2 && GetU16(s.data + 4) == 0x0500;
  std::size_t pos = 0;
  while (s.size - pos >= 4) {
    const std::uint16_t id = GetU16(s.data + pos);
    const std::size_t size = GetU16(s.data + pos + 2);
    if (size > s.size - pos - 4) break;
    if (id == kFilePass) {
      at.found = true;
      at.offset = pos;
      break;
    }
    if (id == rec::kEof) break;
    pos += 4 + size;
  }
  return at;
}

}  // namespace

Status DecryptWorkbookStream(ByteSpan stream, const std::string& password,
                             std::vector<std::uint8_t>* out, Encryption* kind) {
  *kind = Encryption::kNone;
  const FilePassAt at = FindFilePass(stream);
  if (!at.found) return Status::OK();
  if (at.biff2to4) {
    return Status::Unsupported(
        "an encrypted Excel 2/3/4 workbook; only Excel 5 and later encryption is read");
  }
  const std::uint8_t* record = stream.data + at.offset;
  const std::size_t recordSize = GetU16(record + 2);
  FilePass fp;
  Status s = ParseFilePass(record + 4, recordSize, at.biff5, &fp);
  if (!s.ok()) return s;

  Keys keys;
  bool opened = TryPassword(fp, kDefaultPassword, &keys);
  if (!opened && !password.empty()) opened = TryPassword(fp, password, &keys);
  const std::string scheme = EncryptionName(fp.kind);
  if (!opened && password.empty()) {
    return Status::NeedsPassword("the workbook is encrypted (" + scheme +
                                 "); a password is needed to open it");
  }
  if (!opened) {
    return Status::WrongPassword("the password given does not open this encrypted workbook (" +
                                 scheme + ")");
  }

  out->assign(stream.data, stream.data + stream.size);
  std::uint8_t* data = out->data();
  const std::size_t size = out->size();
  Rc4StreamCipher rc4(keys.rc4);
  for (std::size_t pos = at.offset + 4 + recordSize; size - pos >= 4;) {
    const std::uint16_t id = GetU16(data + pos);
    const std::size_t n = GetU16(data + pos + 2);
    if (n > size - pos - 4) break;
    const std::size_t body = pos + 4;
    pos = body + n;
    if (StaysClear(id)) continue;
    const std::size_t first = id == rec::kBoundSheet ? std::min<std::size_t>(n, 4) : 0;
    if (fp.kind != Encryption::kXor) {
      rc4.Apply(data, body + first, n - first);
      continue;
    }
    // The array index of a record's first byte is its position plus the record's length.
    for (std::size_t i = first; i < n; ++i) {
      const unsigned v = data[body + i] ^ keys.xorArray[(body + n + i) % 16];
      data[body + i] = static_cast<std::uint8_t>((v << 3) | (v >> 5));
    }
  }
  *kind = fp.kind;
  return Status::OK();
}

}  // namespace xls
