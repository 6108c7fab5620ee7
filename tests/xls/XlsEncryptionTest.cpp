// Encrypted workbooks: the key derivations against published values, streams encrypted here
// by a second, separate encryptor (so the decryptor is shown to be its inverse), LibreOffice's
// password-protected files, and malformed FILEPASS records.
#include <gtest/gtest.h>
#include <nettle/arcfour.h>
#include <nettle/md5.h>
#include <nettle/sha1.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/xls/PeerTools.h"
#include "xls/CompoundFile.h"
#include "xls/Encryption.h"
#include "xls/Records.h"
#include "xls/Xls.h"

namespace xls {
namespace {

using testing_support::TempDir;
using testing_support::WriteFile;
using xls_test::Dump;
using xls_test::Shell;
using xls_test::SourceDir;
using xls_test::XlrdCells;

std::vector<std::uint8_t> Hex(const char* hex) {
  std::vector<std::uint8_t> out;
  for (const char* p = hex; p[0] && p[1]; p += 2) {
    out.push_back(static_cast<std::uint8_t>(std::stoi(std::string(p, 2), nullptr, 16)));
  }
  return out;
}

TEST(XlsEncryption, KeyDerivationsGivePublishedValues) {
  // XOR: the verifier of Excel's default password, and key and verifier that Excel stored
  // in the FILEPASS record of a workbook protected with "1950".
  EXPECT_EQ(crypto::XorVerifier(kDefaultPassword), 0x9A0A);
  EXPECT_EQ(crypto::XorVerifier("1950"), 0xCC61);
  EXPECT_EQ(crypto::XorKey("1950"), 0x499A);
  // The XOR arrays as CreateXorArray_Method1 builds them step by step: odd and even lengths
  // and the longest password (no pad).
  auto array = [](const char* password) {
    const auto a = crypto::XorArray(password);
    return std::vector<std::uint8_t>(a.begin(), a.end());
  };
  EXPECT_EQ(array(kDefaultPassword), Hex("876b9ae21ee305621e699660986e9404"));
  EXPECT_EQ(array("1950"), Hex("d538d7bc905bb2f9b25b91e44dfbcaa4"));
  EXPECT_EQ(array("abc"), Hex("95999475da577857da7465a87a2f2577"));
  // Passwords reach XOR obfuscation as single bytes, 15 at most.
  EXPECT_EQ(crypto::XorPasswordBytes("é\xE2\x82\xAC"
                                     "abcdefghijklmnopq"),
            "\xE9\xAC"
            "abcdefghijklm");

  struct Rc4Case {
    const char* password;
    const char* salt;
    bool cryptoApi;
    unsigned keyBits;
    std::uint32_t block;
    const char* key;
  } cases[] = {
      // RC4 with MD5 (FILEPASS 1.1), the block-0 key published for this password and salt.
      {"password1", "e8772c1d91c56a37964761b280183217", false, 128, 0,
       "20bf32ddf540858c513744af0f24e03c"},
      // CryptoAPI: SHA-1(SHA-1(salt + password) + block) per [MS-OFFCRYPTO] 2.3.5.2, worked
      // out with Python's hashlib; a 40-bit key is its first 5 bytes and 11 zeros.
      {"password1", "e8772c1d91c56a37964761b280183217", true, 128, 3,
       "1c492ea95f870308bc3a9347c6d27183"},
      {"password1", "e8772c1d91c56a37964761b280183217", true, 40, 0,
       "0bbfe179da0000000000000000000000"},
  };
  for (const auto& c : cases) {
    const std::vector<std::uint8_t> salt = Hex(c.salt);
    const auto pw = crypto::Rc4Password(c.password);
    const auto keys = c.cryptoApi ? crypto::Rc4BlockKeys::CryptoApi(pw, salt.data(), c.keyBits)
                                  : crypto::Rc4BlockKeys::Md5(pw, salt.data());
    const crypto::Rc4Key key = keys.ForBlock(c.block);
    EXPECT_EQ(std::vector<std::uint8_t>(key.bytes, key.bytes + key.size), Hex(c.key))
        << c.password << " block " << c.block << " bits " << c.keyBits;
  }
}

// ---- A second encryptor, for tests only: it inserts FILEPASS after the first BOF and
// encrypts the records after it as [MS-XLS] 2.2.10 says, apart from the decryptor's code.

// kXorExcel95: an Excel 5/95 FILEPASS (no type field) and a BOF that says version 0x0500.
enum class Scheme { kXor, kXorExcel95, kRc4, kCryptoApi128, kCryptoApi40 };

struct Appender {
  std::vector<std::uint8_t>* out;
  void U16(unsigned v) { out->push_back(v & 0xFF), out->push_back((v >> 8) & 0xFF); }
  void U32(std::uint32_t v) { U16(v & 0xFFFF), U16(v >> 16); }
  void Bytes(const std::uint8_t* p, std::size_t n) { out->insert(out->end(), p, p + n); }
};

// *beforeSealing, when given, receives the stream with FILEPASS in place but not yet encrypted.
std::vector<std::uint8_t> EncryptStream(const std::vector<std::uint8_t>& plain, Scheme scheme,
                                        const std::string& password,
                                        std::vector<std::uint8_t>* beforeSealing = nullptr) {
  static const std::uint8_t kSalt[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  static const std::uint8_t kVerifier[16] = {'v', 'e', 'r', 'i', 'f', 'i', 'e', 'r',
                                             '-', 'b', 'y', 't', 'e', 's', '!', '?'};
  std::vector<std::uint8_t> filePass;
  Appender fp{&filePass};
  std::array<std::uint8_t, 16> xorArray{};
  crypto::Rc4BlockKeys keys = crypto::Rc4BlockKeys::Md5({}, kSalt);
  // The verifier and its hash are encrypted as one run with block 0's key.
  auto appendVerifier = [&](bool sha1) {
    std::uint8_t plainPart[36], sealed[36];
    std::memcpy(plainPart, kVerifier, 16);
    if (sha1) {
      sha1_ctx h;
      sha1_init(&h), sha1_update(&h, 16, kVerifier), sha1_digest(&h, 20, plainPart + 16);
    } else {
      md5_ctx h;
      md5_init(&h), md5_update(&h, 16, kVerifier), md5_digest(&h, 16, plainPart + 16);
    }
    const std::size_t n = sha1 ? 36 : 32;
    const crypto::Rc4Key key = keys.ForBlock(0);
    arcfour_ctx rc4;
    arcfour_set_key(&rc4, key.size, key.bytes);
    arcfour_crypt(&rc4, n, sealed, plainPart);
    fp.Bytes(sealed, 16);
    if (sha1) fp.U32(20);
    fp.Bytes(sealed + 16, n - 16);
  };
  const bool xor_ = scheme == Scheme::kXor || scheme == Scheme::kXorExcel95;
  if (xor_) {
    const std::string bytes = crypto::XorPasswordBytes(password);
    if (scheme == Scheme::kXor) fp.U16(0);
    fp.U16(crypto::XorKey(bytes)), fp.U16(crypto::XorVerifier(bytes));
    xorArray = crypto::XorArray(bytes);
  } else if (scheme == Scheme::kRc4) {
    keys = crypto::Rc4BlockKeys::Md5(crypto::Rc4Password(password), kSalt);
    fp.U16(1), fp.U16(1), fp.U16(1);
    fp.Bytes(kSalt, 16);
    appendVerifier(false);
  } else {
    const unsigned bits = scheme == Scheme::kCryptoApi40 ? 40 : 128;
    keys = crypto::Rc4BlockKeys::CryptoApi(crypto::Rc4Password(password), kSalt, bits);
    const std::u16string provider = u"Microsoft Enhanced Cryptographic Provider v1.0";
    fp.U16(1), fp.U16(4), fp.U16(2), fp.U32(0x04);
    fp.U32(static_cast<std::uint32_t>(32 + 2 * (provider.size() + 1)));
    fp.U32(0x04), fp.U32(0), fp.U32(0x6801), fp.U32(0x8004), fp.U32(bits), fp.U32(1);
    fp.U32(0), fp.U32(0);
    for (char16_t c : provider) fp.U16(c);
    fp.U16(0);
    fp.U32(16), fp.Bytes(kSalt, 16);
    appendVerifier(true);
  }

  const std::size_t bofEnd = 4 + GetU16(plain.data() + 2);
  std::vector<std::uint8_t> out(plain.begin(), plain.begin() + bofEnd);
  Appender a{&out};
  a.U16(0x002F), a.U16(static_cast<unsigned>(filePass.size()));
  a.Bytes(filePass.data(), filePass.size());
  const std::size_t shift = out.size() - bofEnd;
  out.insert(out.end(), plain.begin() + bofEnd, plain.end());
  if (scheme == Scheme::kXorExcel95) PutU16(out.data() + 4, 0x0500);

  std::size_t keyedBlock = SIZE_MAX;
  std::uint8_t keystream[1024];
  auto seal = [&](std::size_t pos, std::size_t recordLength) {
    std::uint8_t& b = out[pos];
    if (xor_) {
      b = static_cast<std::uint8_t>(((b << 5) | (b >> 3)) ^ xorArray[(pos + recordLength) % 16]);
      return;
    }
    if (pos / 1024 != keyedBlock) {
      keyedBlock = pos / 1024;
      const crypto::Rc4Key key = keys.ForBlock(static_cast<std::uint32_t>(keyedBlock));
      arcfour_ctx rc4;
      arcfour_set_key(&rc4, key.size, key.bytes);
      std::memset(keystream, 0, sizeof keystream);
      arcfour_crypt(&rc4, sizeof keystream, keystream, keystream);
    }
    b ^= keystream[pos % 1024];
  };
  // Records after FILEPASS: each visited as (id, start of data, length).
  auto forEachRecord = [&out, start = bofEnd + shift](auto visit) {
    for (std::size_t pos = start; pos + 4 <= out.size();) {
      const unsigned id = GetU16(out.data() + pos), n = GetU16(out.data() + pos + 2);
      visit(id, pos + 4, n);
      pos += 4 + n;
    }
  };
  forEachRecord([&](unsigned id, std::size_t body, std::size_t) {
    if (id == rec::kBoundSheet) {
      PutU32(out.data() + body, static_cast<std::uint32_t>(GetU32(out.data() + body) + shift));
    }
  });
  if (beforeSealing != nullptr) *beforeSealing = out;
  forEachRecord([&](unsigned id, std::size_t body, std::size_t n) {
    if (id == rec::kBof) return;
    // XOR indexes each byte by its position plus the length of its record.
    for (std::size_t i = id == rec::kBoundSheet ? 4 : 0; i < n; ++i) seal(body + i, n);
  });
  return out;
}

std::vector<std::uint8_t> StreamOf(const std::vector<std::uint8_t>& file) {
  CompoundFileReader cfb;
  std::vector<std::uint8_t> stream;
  EXPECT_TRUE(cfb.Open(file.data(), file.size()).ok());
  EXPECT_TRUE(cfb.ReadStream("Workbook", &stream).ok());
  return stream;
}

std::vector<std::uint8_t> FileOf(const std::vector<std::uint8_t>& stream) {
  CompoundFileImage image;
  EXPECT_TRUE(BuildCompoundFile({{"Workbook", &stream}}, 9, &image).ok());
  return image.Flatten();
}

// Two sheets whose records span some twenty 1,024-byte RC4 blocks, text in both widths.
Workbook Sample() {
  Workbook wb;
  Sheet& a = wb.addSheet("Prices");
  for (int r = 0; r < 400; ++r) {
    a.set(r, 0, Cell::Text("item " + std::to_string(r) + (r % 3 ? " Zoë €" : " plain")));
    a.set(r, 1, Cell::Number(r * 1.25));
  }
  Sheet& b = wb.addSheet("Ünïcode");
  b.set(0, 0, Cell::Text("日本語"));
  b.set(2, 3, Cell::Boolean(true));
  return wb;
}

void ExpectSameCells(const Workbook& expected, const Workbook& got) {
  ASSERT_EQ(got.sheets().size(), expected.sheets().size());
  for (std::size_t i = 0; i < expected.sheets().size(); ++i) {
    const Sheet& e = expected.sheets()[i];
    const Sheet& g = got.sheets()[i];
    EXPECT_EQ(g.name(), e.name());
    ASSERT_EQ(g.usedRows(), e.usedRows());
    ASSERT_EQ(g.usedColumns(), e.usedColumns());
    for (int r = 0; r < e.usedRows(); ++r) {
      for (int c = 0; c < e.usedColumns(); ++c) {
        ASSERT_TRUE(g.at(r, c) == e.at(r, c)) << e.name() << " row " << r << " column " << c;
      }
    }
  }
}

TEST(XlsEncryption, ReadsWhatEachSchemeEncryptsAndNamesPasswordFaults) {
  const Workbook plain = Sample();
  std::vector<std::uint8_t> plainFile;
  ASSERT_TRUE(WriteWorkbookToMemory(plain, &plainFile).ok());
  const std::vector<std::uint8_t> stream = StreamOf(plainFile);
  struct Case {
    Scheme scheme;
    const char* encryptedWith;
    const char* given;
    Status::Code code;
  } cases[] = {
      // Protected against editing only: Excel's default password, none given.
      {Scheme::kXor, kDefaultPassword, "", Status::Code::kOk},
      {Scheme::kRc4, kDefaultPassword, "", Status::Code::kOk},
      {Scheme::kCryptoApi128, kDefaultPassword, "", Status::Code::kOk},
      {Scheme::kCryptoApi40, kDefaultPassword, "any", Status::Code::kOk},
      {Scheme::kXor, "s3cret", "s3cret", Status::Code::kOk},
      {Scheme::kRc4, "pässwörd €", "pässwörd €", Status::Code::kOk},
      {Scheme::kCryptoApi128, "s3cret", "s3cret", Status::Code::kOk},
      {Scheme::kCryptoApi40, "s3cret", "s3cret", Status::Code::kOk},
      {Scheme::kXor, "s3cret", "", Status::Code::kNeedsPassword},
      {Scheme::kRc4, "s3cret", "", Status::Code::kNeedsPassword},
      {Scheme::kCryptoApi128, "s3cret", "", Status::Code::kNeedsPassword},
      {Scheme::kXor, "s3cret", "S3cret", Status::Code::kWrongPassword},
      {Scheme::kRc4, "s3cret", "s3cret ", Status::Code::kWrongPassword},
      {Scheme::kCryptoApi40, "s3cret", "secret", Status::Code::kWrongPassword},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string("scheme ") + std::to_string(static_cast<int>(c.scheme)) +
                 " encrypted with '" + c.encryptedWith + "', given '" + c.given + "'");
    const std::vector<std::uint8_t> file = FileOf(EncryptStream(stream, c.scheme, c.encryptedWith));
    Workbook wb;
    ReadOptions options;
    options.password = c.given;
    const Status s = ReadWorkbookFromMemory(file.data(), file.size(), options, &wb);
    ASSERT_EQ(s.code(), c.code) << s.ToString();
    if (!s.ok()) {
      EXPECT_NE(s.message().find("encrypted"), std::string::npos) << s.message();
      continue;
    }
    EXPECT_TRUE(wb.encrypted);
    ExpectSameCells(plain, wb);
  }
}

// Excel 5/95 files are read elsewhere; their decryption is checked on the stream: FILEPASS
// holds only key and verifier there, and the bytes must come back as they were.
TEST(XlsEncryption, Excel95XorStreamDecryptsToItsPlainBytes) {
  std::vector<std::uint8_t> plainFile;
  ASSERT_TRUE(WriteWorkbookToMemory(Sample(), &plainFile).ok());
  for (const char* password : {kDefaultPassword, "s3cret"}) {
    std::vector<std::uint8_t> expected;
    const auto sealed =
        EncryptStream(StreamOf(plainFile), Scheme::kXorExcel95, password, &expected);
    ASSERT_NE(sealed, expected);
    std::vector<std::uint8_t> clear;
    Encryption kind = Encryption::kNone;
    const Status s = DecryptWorkbookStream({sealed.data(), sealed.size()}, "s3cret", &clear, &kind);
    ASSERT_TRUE(s.ok()) << s.ToString();
    EXPECT_EQ(kind, Encryption::kXor);
    EXPECT_TRUE(clear == expected) << password;
  }
}

TEST(XlsEncryption, AWorkbookReadEncryptedIsNotSavedWithoutItsPassword) {
  std::vector<std::uint8_t> plainFile;
  ASSERT_TRUE(WriteWorkbookToMemory(Sample(), &plainFile).ok());
  const auto file = FileOf(EncryptStream(StreamOf(plainFile), Scheme::kRc4, kDefaultPassword));
  Workbook wb;
  ASSERT_TRUE(ReadWorkbookFromMemory(file.data(), file.size(), &wb).ok());
  std::vector<std::uint8_t> out;
  const Status refused = WriteWorkbookToMemory(wb, &out);
  EXPECT_EQ(refused.code(), Status::Code::kUnsupported);
  EXPECT_NE(refused.message().find("password"), std::string::npos) << refused.message();
  TempDir dir;
  EXPECT_FALSE(WriteWorkbook(dir.file("out.xls"), wb).ok());
  wb.encrypted = false;  // the owner's explicit choice to save it unprotected
  EXPECT_TRUE(WriteWorkbookToMemory(wb, &out).ok());
}

// A globals substream of BOF (BIFF8 or Excel 2), one FILEPASS with the payload, and EOF.
std::vector<std::uint8_t> WithFilePass(const std::vector<std::uint8_t>& payload,
                                       std::uint16_t bof = rec::kBof) {
  std::vector<std::uint8_t> s;
  Appender a{&s};
  a.U16(bof), a.U16(16), a.U16(0x0600), a.U16(0x0005);
  for (int i = 0; i < 12; ++i) s.push_back(0);
  a.U16(0x002F), a.U16(static_cast<unsigned>(payload.size()));
  a.Bytes(payload.data(), payload.size());
  a.U16(rec::kEof), a.U16(0);
  return FileOf(s);
}

std::vector<std::uint8_t> CryptoApiPayload(std::uint32_t headerSize, std::uint32_t algorithm,
                                           std::uint32_t keyBits, std::uint32_t saltSize) {
  std::vector<std::uint8_t> p;
  Appender a{&p};
  a.U16(1), a.U16(3), a.U16(2), a.U32(0), a.U32(headerSize);
  a.U32(0), a.U32(0), a.U32(algorithm), a.U32(0x8004), a.U32(keyBits), a.U32(1), a.U32(0), a.U32(0);
  a.U32(saltSize);
  p.resize(p.size() + 56);
  return p;
}

TEST(XlsEncryption, MalformedFilePassGivesAClearError) {
  struct Case {
    const char* what;
    std::vector<std::uint8_t> file;
    Status::Code code;
    const char* message;
  } cases[] = {
      {"empty", WithFilePass({}), Status::Code::kCorruption, "too short"},
      {"XOR cut short", WithFilePass({0, 0, 1, 2}), Status::Code::kCorruption, "too short for XOR"},
      {"RC4 cut short", WithFilePass(std::vector<std::uint8_t>{1, 0, 1, 0, 1, 0, 9}),
       Status::Code::kCorruption, "too short for RC4"},
      {"unknown type", WithFilePass({7, 0, 1, 0, 1, 0}), Status::Code::kUnsupported, "type 0x0007"},
      {"unknown version", WithFilePass({1, 0, 9, 0, 9, 0}), Status::Code::kUnsupported,
       "version 9.9"},
      {"huge header size", WithFilePass(CryptoApiPayload(0xFFFFFFF0u, 0x6801, 128, 16)),
       Status::Code::kCorruption, "header size 4294967280"},
      {"AES named", WithFilePass(CryptoApiPayload(32, 0x660E, 128, 16)), Status::Code::kUnsupported,
       "cipher 0x660E"},
      {"256-bit RC4 key", WithFilePass(CryptoApiPayload(32, 0x6801, 256, 16)),
       Status::Code::kCorruption, "256 bits"},
      {"salt of 99 bytes", WithFilePass(CryptoApiPayload(32, 0x6801, 128, 99)),
       Status::Code::kCorruption, "salt of 99"},
      {"Excel 2 file", WithFilePass({0, 0, 1, 2, 3, 4}, rec::kBof2), Status::Code::kUnsupported,
       "Excel 2/3/4"},
  };
  for (const auto& c : cases) {
    Workbook wb;
    const Status s = ReadWorkbookFromMemory(c.file.data(), c.file.size(), &wb);
    EXPECT_EQ(s.code(), c.code) << c.what << ": " << s.ToString();
    EXPECT_NE(s.message().find(c.message), std::string::npos) << c.what << ": " << s.message();
  }
}

// ---- LibreOffice as the independent writer.

std::vector<std::uint8_t> ReadBytes(const std::string& path) {
  const std::string bytes = testing_support::ReadFile(path);
  return {bytes.begin(), bytes.end()};
}

TEST(XlsEncryption, ReadsLibreOfficePasswordProtectedWorkbooks) {
  TempDir dir;
  // Enough rows that the records span several RC4 blocks.
  std::string csv = "name,amount\n";
  for (int r = 1; r < 300; ++r) {
    csv += "\"item " + std::to_string(r) + (r % 2 ? " Zoë €" : "") + "\"," + std::to_string(r) +
           ".5\n";
  }
  WriteFile(dir.file("in.csv"), csv);
  // One workbook with a password, one with Excel's default password (what Excel writes
  // for a workbook protected against editing only) and one without any.
  const std::string password = "Tr0ub4dor&3";
  Shell("HOME='" + dir.path() + "' /usr/bin/python3 " + SourceDir() +
        "/tests/xls/make_encrypted_fixture.py " + dir.file("profile") + " " + dir.file("in.csv") +
        " " + dir.file("protected.xls") + " '" + password + "' " + dir.file("default.xls") + " " +
        kDefaultPassword + " " + dir.file("plain.xls") + " '' 2>&1");
  const std::vector<std::uint8_t> file = ReadBytes(dir.file("protected.xls"));
  ASSERT_FALSE(file.empty()) << "LibreOffice wrote no workbook";

  // Which scheme LibreOffice chose, for the record (7.4 writes RC4 with MD5, FILEPASS 1.1).
  const std::vector<std::uint8_t> stream = StreamOf(file);
  std::vector<std::uint8_t> clear;
  Encryption kind = Encryption::kNone;
  ASSERT_TRUE(DecryptWorkbookStream({stream.data(), stream.size()}, password, &clear, &kind).ok());
  EXPECT_NE(kind, Encryption::kNone);
  RecordProperty("LibreOfficeEncryption", EncryptionName(kind));

  Workbook wb;
  ReadOptions options;
  options.password = password;
  Status s = ReadWorkbookFromMemory(file.data(), file.size(), options, &wb);
  ASSERT_TRUE(s.ok()) << s.ToString();
  EXPECT_TRUE(wb.encrypted);
  ASSERT_EQ(wb.sheets().size(), 1u);
  const Sheet& sheet = wb.sheets()[0];
  ASSERT_EQ(sheet.usedRows(), 300);
  EXPECT_EQ(sheet.at(0, 0).text, "name");
  for (int r = 1; r < 300; ++r) {
    ASSERT_EQ(sheet.at(r, 0).text, "item " + std::to_string(r) + (r % 2 ? " Zoë €" : ""));
    ASSERT_EQ(sheet.at(r, 1).number, r + 0.5) << "row " << r;
  }
  // xlrd cannot decrypt: it reads the unprotected copy, which must hold the same cells.
  const std::string xlrd = XlrdCells(dir.file("plain.xls"));
  EXPECT_EQ("biff 80\n" + Dump(wb), xlrd);

  Workbook editProtected;
  const std::vector<std::uint8_t> byDefault = ReadBytes(dir.file("default.xls"));
  s = ReadWorkbookFromMemory(byDefault.data(), byDefault.size(), &editProtected);
  ASSERT_TRUE(s.ok()) << s.ToString();
  EXPECT_TRUE(editProtected.encrypted);
  EXPECT_EQ("biff 80\n" + Dump(editProtected), xlrd);

  options.password = "Tr0ub4dor&4";
  s = ReadWorkbookFromMemory(file.data(), file.size(), options, &wb);
  EXPECT_EQ(s.code(), Status::Code::kWrongPassword) << s.ToString();
  s = ReadWorkbookFromMemory(file.data(), file.size(), &wb);
  EXPECT_EQ(s.code(), Status::Code::kNeedsPassword) << s.ToString();
  EXPECT_NE(s.message().find("password is needed"), std::string::npos) << s.message();
}

// The fuzz corpus holds a small workbook encrypted each way, so the fuzz target (which gives
// no password) gets through the decryption to the records behind it, and a damaged FILEPASS.
// Each seed must stay what its name says; XLS_WRITE_ENCRYPTED_SEEDS=1 writes them anew.
TEST(XlsEncryption, CorpusSeedsAreEncryptedAsNamed) {
  Workbook wb;
  Sheet& sheet = wb.addSheet("Seed");
  sheet.set(0, 0, Cell::Text("seed ünïcode"));
  sheet.set(0, 1, Cell::Number(1.5));
  sheet.set(1, 0, Cell::Boolean(true));
  std::vector<std::uint8_t> plainFile;
  ASSERT_TRUE(WriteWorkbookToMemory(wb, &plainFile).ok());
  const std::vector<std::uint8_t> stream = StreamOf(plainFile);
  struct Seed {
    const char* name;
    std::vector<std::uint8_t> file;
    Encryption kind;
    Status::Code withoutPassword;
  } seeds[] = {
      {"encrypted-xor-default", FileOf(EncryptStream(stream, Scheme::kXor, kDefaultPassword)),
       Encryption::kXor, Status::Code::kOk},
      {"encrypted-rc4-default", FileOf(EncryptStream(stream, Scheme::kRc4, kDefaultPassword)),
       Encryption::kRc4, Status::Code::kOk},
      {"encrypted-cryptoapi40-default",
       FileOf(EncryptStream(stream, Scheme::kCryptoApi40, kDefaultPassword)),
       Encryption::kRc4CryptoApi, Status::Code::kOk},
      {"encrypted-cryptoapi128-s3cret",
       FileOf(EncryptStream(stream, Scheme::kCryptoApi128, "s3cret")), Encryption::kRc4CryptoApi,
       Status::Code::kNeedsPassword},
      {"encrypted-filepass-huge-header",
       WithFilePass(CryptoApiPayload(0xFFFFFFF0u, 0x6801, 128, 16)), Encryption::kNone,
       Status::Code::kCorruption},
  };
  for (const auto& seed : seeds) {
    const std::string path = SourceDir() + "/tests/xls/corpus/" + seed.name;
    if (std::getenv("XLS_WRITE_ENCRYPTED_SEEDS")) {
      WriteFile(path, std::string(seed.file.begin(), seed.file.end()));
    }
    const std::vector<std::uint8_t> file = ReadBytes(path);
    ASSERT_FALSE(file.empty()) << path;
    Workbook back;
    const Status s = ReadWorkbookFromMemory(file.data(), file.size(), &back);
    EXPECT_EQ(s.code(), seed.withoutPassword) << seed.name << ": " << s.ToString();
    if (seed.kind == Encryption::kNone) continue;
    const std::vector<std::uint8_t> seedStream = StreamOf(file);
    std::vector<std::uint8_t> clear;
    Encryption kind = Encryption::kNone;
    EXPECT_TRUE(
        DecryptWorkbookStream({seedStream.data(), seedStream.size()}, "s3cret", &clear, &kind)
            .ok());
    EXPECT_EQ(kind, seed.kind) << seed.name;
    ReadOptions options;
    options.password = "s3cret";
    ASSERT_TRUE(ReadWorkbookFromMemory(file.data(), file.size(), options, &back).ok()) << seed.name;
    ExpectSameCells(wb, back);
  }
}

}  // namespace
}  // namespace xls
