// Password-protected workbooks: the FILEPASS record and the three ways a workbook stream is
// encrypted with it ([MS-XLS] 2.2.10, 2.4.117; [MS-OFFCRYPTO] 2.3.5-2.3.7):
//   XOR obfuscation      Excel 5/95, and Excel 97 and later when asked for it
//   RC4                  Excel 97/2000: an MD5 key (FILEPASS version 1.1)
//   RC4 CryptoAPI        Excel 2002 and later: a SHA-1 key, 40 to 128 bits (versions 2-4.2)
//
// Only record data is encrypted. Record headers stay clear, and so do the whole of BOF,
// FILEPASS, USREXCL, FILELOCK, INTERFACEHDR, RRDINFO and RRDHEAD, and the first four bytes
// of BOUNDSHEET (the sheet's stream offset). Both ciphers are tied to the position in the
// stream, not to the records: RC4 is rekeyed every 1,024 bytes of the stream, the XOR array
// is indexed by position, so clear bytes still advance them.
//
// A workbook protected against editing only is encrypted with Excel's built-in password
// (kDefaultPassword); it is always tried first, as Excel does before it asks for one.
//
// Ownership: the functions keep no state; the caller owns every buffer. MD5, SHA-1 and RC4
// are Nettle's.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "xls/FileIo.h"
#include "xls/Status.h"

namespace xls {

enum class Encryption : std::uint8_t { kNone, kXor, kRc4, kRc4CryptoApi };

// "XOR obfuscation", "RC4", "RC4 CryptoAPI", "none".
const char* EncryptionName(Encryption kind);

// The password Excel encrypts with when a file is only protected against editing.
extern const char kDefaultPassword[];

// Decrypts the workbook stream when its globals hold a FILEPASS record. Without one (the
// usual case, found by reading the globals' record headers only) it returns OK with *kind
// kNone and leaves *out alone. Otherwise it tries kDefaultPassword, then `password` (UTF-8)
// when not empty; on success *out is a copy of the stream with every encrypted byte in
// clear, offsets and lengths unchanged, and *kind names the scheme.
// Failures: NeedsPassword (no password given and the default one does not open it),
// WrongPassword (neither opens it), Unsupported (a cipher or version not read here, or an
// encrypted Excel 2-4 file), Corruption (a FILEPASS record too short or inconsistent).
// A record that runs past the end of the stream ends the decryption quietly: the reader
// names it when it gets there.
Status DecryptWorkbookStream(ByteSpan stream, const std::string& password,
                             std::vector<std::uint8_t>* out, Encryption* kind);

// The key derivations of [MS-OFFCRYPTO], public for their tests and for tests that build
// encrypted files.
namespace crypto {

// XOR obfuscation hashes single bytes: each UTF-16 unit's low byte, or its high byte when
// the low one is zero, at most 15 of them (2.3.7.4).
std::string XorPasswordBytes(std::string_view utf8);
// 2.3.7.1 CreatePasswordVerifier_Method1, kept in FILEPASS. REQUIRES: 1-15 bytes.
std::uint16_t XorVerifier(std::string_view bytes);
// 2.3.7.2 CreateXorKey_Method1 and CreateXorArray_Method1. REQUIRES: 1-15 bytes.
std::uint16_t XorKey(std::string_view bytes);
std::array<std::uint8_t, 16> XorArray(std::string_view bytes);

// RC4 passwords are UTF-16LE, at most 255 units.
std::vector<std::uint16_t> Rc4Password(std::string_view utf8);

struct Rc4Key {
  std::uint8_t bytes[16];
  std::size_t size;
};

// The RC4 key of each 1,024-byte block of a stream, from a password and the FILEPASS salt:
// RC4 with MD5 (2.3.6.2) or CryptoAPI with SHA-1 (2.3.5.2; keyBits 40-128, a multiple of 8;
// a 40-bit key is padded with zeros to 128 bits). The password hash is made once.
class Rc4BlockKeys {
 public:
  static Rc4BlockKeys Md5(const std::vector<std::uint16_t>& password, const std::uint8_t salt[16]);
  static Rc4BlockKeys CryptoApi(const std::vector<std::uint16_t>& password,
                                const std::uint8_t salt[16], unsigned keyBits);
  Rc4Key ForBlock(std::uint32_t block) const;

 private:
  bool sha1_ = false;
  std::uint8_t hash_[20] = {};  // MD5: its first 5 bytes; SHA-1: all 20
  unsigned keyBytes_ = 16;
};

}  // namespace crypto
}  // namespace xls
