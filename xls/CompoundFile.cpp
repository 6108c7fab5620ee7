#include "xls/CompoundFile.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "xls/Records.h"

namespace xls {

namespace {

constexpr std::uint32_t kFree = 0xFFFFFFFF;
constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE;
constexpr std::uint32_t kFatSector = 0xFFFFFFFD;
constexpr std::uint32_t kDifatSector = 0xFFFFFFFC;
constexpr std::uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr std::size_t kHeaderDifatEntries = 109;
constexpr std::uint32_t kMiniSectorSize = 64;
constexpr std::uint8_t kTypeStorage = 1, kTypeStream = 2, kTypeRoot = 5;

std::string Upper(std::string_view s) {
  std::string r(s);
  for (char& c : r) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return r;
}

std::string Num(std::uint64_t v) { return std::to_string(v); }

}  // namespace

const std::uint8_t* CompoundFileReader::sectorData(std::uint32_t sector) const {
  const std::size_t ss = std::size_t{1} << sectorShift_;
  const std::size_t at = (static_cast<std::size_t>(sector) + 1) * ss;
  return at + ss <= size_ ? data_ + at : lastSector_.data();
}

Status CompoundFileReader::Chain(std::uint32_t start, const std::vector<std::uint32_t>& table,
                                 std::uint64_t limit, const char* what,
                                 std::vector<std::uint32_t>* out) const {
  out->clear();
  limit = std::min<std::uint64_t>(limit, table.size());
  std::uint32_t s = start;
  while (s != kEndOfChain) {
    if (s >= limit) {
      return Status::Corruption(std::string(what) + ": sector index " + Num(s) + " out of range (" +
                                Num(limit) + " sectors)");
    }
    if (out->size() >= limit) {
      return Status::Corruption(std::string(what) + ": sector chain from " + Num(start) + " loops");
    }
    out->push_back(s);
    s = table[s];
  }
  return Status::OK();
}

Status CompoundFileReader::Open(const std::uint8_t* data, std::size_t size) {
  data_ = data;
  size_ = size;
  fat_.clear();
  miniFat_.clear();
  entries_.clear();
  if (size >= 4 && data[0] == 'P' && data[1] == 'K' && data[2] == 3 && data[3] == 4) {
    return Status::Unsupported("an Office Open XML (.xlsx) workbook, not an .xls file");
  }
  if (size < 512) {
    return Status::Corruption("file is " + Num(size) + " bytes, too short for a compound file");
  }
  if (std::memcmp(data, kSignature, 8) != 0) {
    return Status::Corruption("not a compound file (wrong signature)");
  }
  if (GetU16(data + 28) != 0xFFFE) return Status::Corruption("compound file: bad byte order mark");
  unsigned shift = GetU16(data + 30);
  if (shift != 9 && shift != 12) {
    return Status::Corruption("compound file: unsupported sector size 2^" + Num(shift));
  }
  if (GetU16(data + 32) != 6)
    return Status::Corruption("compound file: mini sector size is not 64");
  sectorShift_ = shift;
  const std::size_t ss = std::size_t{1} << shift;
  // A last sector cut short counts, padded with zeros, as Excel reads it: some writers end
  // the file where the last stream ends.
  sectorCount_ = size <= ss ? 0
                            : static_cast<std::uint32_t>(
                                  std::min<std::size_t>((size - 1) / ss, 0xFFFFFFF0u));
  lastSector_.clear();
  if (size > ss && (size - ss) % ss != 0) {
    const std::size_t at = static_cast<std::size_t>(sectorCount_) * ss;
    lastSector_.assign(ss, 0);
    std::memcpy(lastSector_.data(), data + at, std::min(ss, size - at));
  }
  const std::uint32_t numFat = GetU32(data + 44);
  const std::uint32_t firstDir = GetU32(data + 48);
  miniCutoff_ = GetU32(data + 56);
  const std::uint32_t firstMiniFat = GetU32(data + 60);
  const std::uint32_t firstDifat = GetU32(data + 68);
  const std::uint32_t numDifat = GetU32(data + 72);
  if (numFat > sectorCount_ || numDifat > sectorCount_) {
    return Status::Corruption("compound file: header claims " + Num(numFat) + " FAT and " +
                              Num(numDifat) + " DIFAT sectors but the file holds " +
                              Num(sectorCount_) + " sectors");
  }

  std::vector<std::uint32_t> fatSectors;
  for (std::size_t i = 0; i < kHeaderDifatEntries && fatSectors.size() < numFat; ++i) {
    std::uint32_t s = GetU32(data + 76 + 4 * i);
    if (s == kFree || s == kEndOfChain) break;
    fatSectors.push_back(s);
  }
  const std::size_t perSector = ss / 4;
  std::uint32_t difat = firstDifat;
  for (std::uint32_t k = 0; fatSectors.size() < numFat && difat != kEndOfChain && difat != kFree;
       ++k) {
    if (k >= numDifat || difat >= sectorCount_) {
      return Status::Corruption("compound file: DIFAT chain runs past its " + Num(numDifat) +
                                " sectors or out of the file at sector " + Num(difat));
    }
    const std::uint8_t* p = sectorData(difat);
    for (std::size_t i = 0; i + 1 < perSector && fatSectors.size() < numFat; ++i) {
      std::uint32_t s = GetU32(p + 4 * i);
      if (s != kFree) fatSectors.push_back(s);
    }
    difat = GetU32(p + 4 * (perSector - 1));
  }
  fat_.reserve(fatSectors.size() * perSector);
  for (std::uint32_t s : fatSectors) {
    if (s >= sectorCount_) {
      return Status::Corruption("compound file: FAT sector index " + Num(s) + " out of range (" +
                                Num(sectorCount_) + " sectors)");
    }
    const std::uint8_t* p = sectorData(s);
    for (std::size_t i = 0; i < perSector; ++i) fat_.push_back(GetU32(p + 4 * i));
  }

  std::vector<std::uint32_t> chain;
  Status st = Chain(firstDir, fat_, sectorCount_, "directory", &chain);
  if (!st.ok()) return st;
  for (std::uint32_t sector : chain) {
    const std::uint8_t* p = sectorData(sector);
    for (std::size_t off = 0; off + 128 <= ss; off += 128) {
      const std::uint8_t* e = p + off;
      Entry entry;
      entry.type = e[66];
      std::size_t nameBytes = std::min<std::size_t>(GetU16(e + 64), 64);
      for (std::size_t i = 0; i + 1 < nameBytes; i += 2) {
        std::uint16_t u = GetU16(e + i);
        if (u == 0) break;
        char c = u < 0x80 ? static_cast<char>(u) : '?';
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        entry.name.push_back(c);
      }
      entry.start = GetU32(e + 116);
      entry.size = shift == 9 ? GetU32(e + 120) : GetU64(e + 120);
      entries_.push_back(std::move(entry));
    }
  }
  if (entries_.empty() || entries_[0].type != kTypeRoot) {
    return Status::Corruption("compound file: the directory has no root entry");
  }
  if (firstMiniFat != kEndOfChain && firstMiniFat != kFree) {
    st = Chain(firstMiniFat, fat_, sectorCount_, "mini FAT", &chain);
    if (!st.ok()) return st;
    miniFat_.reserve(chain.size() * perSector);
    for (std::uint32_t sector : chain) {
      const std::uint8_t* p = sectorData(sector);
      for (std::size_t i = 0; i < perSector; ++i) miniFat_.push_back(GetU32(p + 4 * i));
    }
  }
  return Status::OK();
}

const CompoundFileReader::Entry* CompoundFileReader::Find(std::string_view name) const {
  std::string want = Upper(name);
  for (std::size_t i = 1; i < entries_.size(); ++i) {
    if (entries_[i].type == kTypeStream && entries_[i].name == want) return &entries_[i];
  }
  return nullptr;
}

bool CompoundFileReader::HasStream(std::string_view name) const { return Find(name) != nullptr; }

Status CompoundFileReader::ReadRegular(std::uint32_t start, std::uint64_t size, const char* what,
                                       std::vector<std::uint8_t>* out) const {
  const std::size_t ss = std::size_t{1} << sectorShift_;
  if (size > static_cast<std::uint64_t>(sectorCount_) * ss) {
    return Status::Corruption(std::string(what) + ": size " + Num(size) +
                              " is larger than the file");
  }
  std::vector<std::uint32_t> chain;
  Status st = Chain(start, fat_, sectorCount_, what, &chain);
  if (!st.ok()) return st;
  if (static_cast<std::uint64_t>(chain.size()) * ss < size) {
    return Status::Corruption(std::string(what) + ": " + Num(size) + " bytes but its chain holds " +
                              Num(chain.size()) + " sectors");
  }
  // Appended sector by sector into reserved room: no zero fill of a buffer about to be copied over.
  out->clear();
  out->reserve(static_cast<std::size_t>(size));
  for (std::size_t i = 0; out->size() < size; ++i) {
    std::size_t n = std::min<std::size_t>(ss, static_cast<std::size_t>(size) - out->size());
    const std::uint8_t* from = sectorData(chain[i]);
    out->insert(out->end(), from, from + n);
  }
  return Status::OK();
}

Status CompoundFileReader::ReadStream(std::string_view name, std::vector<std::uint8_t>* out) const {
  const Entry* e = Find(name);
  if (e == nullptr)
    return Status::NotFound("compound file has no stream named " + std::string(name));
  std::string what = "stream " + std::string(name);
  if (e->size >= miniCutoff_) return ReadRegular(e->start, e->size, what.c_str(), out);

  std::vector<std::uint8_t> container;
  Status st = ReadRegular(entries_[0].start, entries_[0].size, "mini-stream", &container);
  if (!st.ok()) return st;
  std::vector<std::uint32_t> chain;
  st = Chain(e->start, miniFat_, container.size() / kMiniSectorSize, what.c_str(), &chain);
  if (!st.ok()) return st;
  if (static_cast<std::uint64_t>(chain.size()) * kMiniSectorSize < e->size) {
    return Status::Corruption(what + ": " + Num(e->size) + " bytes but its mini chain holds " +
                              Num(chain.size()) + " sectors");
  }
  out->resize(static_cast<std::size_t>(e->size));
  std::size_t done = 0;
  for (std::size_t i = 0; done < out->size(); ++i) {
    std::size_t n = std::min<std::size_t>(kMiniSectorSize, out->size() - done);
    std::memcpy(out->data() + done, container.data() + std::size_t{chain[i]} * kMiniSectorSize, n);
    done += n;
  }
  return Status::OK();
}

bool CompoundFileReader::StreamInPlace(std::string_view name, ByteSpan* out) const {
  const Entry* e = Find(name);
  if (e == nullptr || e->size < miniCutoff_) return false;
  const std::size_t ss = std::size_t{1} << sectorShift_;
  if (e->size > static_cast<std::uint64_t>(sectorCount_) * ss) return false;
  std::vector<std::uint32_t> chain;
  if (!Chain(e->start, fat_, sectorCount_, "stream", &chain).ok()) return false;
  if (chain.empty() || static_cast<std::uint64_t>(chain.size()) * ss < e->size) return false;
  for (std::size_t i = 1; i < chain.size(); ++i) {
    if (chain[i] != chain[0] + i) return false;
  }
  const std::uint64_t first = (std::uint64_t{chain[0]} + 1) * ss;
  if (first + e->size > size_) return false;
  *out = ByteSpan{data_ + first, static_cast<std::size_t>(e->size)};
  return true;
}

std::vector<std::uint8_t> CompoundFileImage::Flatten() const {
  std::size_t total = 0;
  for (const ByteSpan& p : pieces) total += p.size;
  std::vector<std::uint8_t> out;
  out.reserve(total);
  for (const ByteSpan& p : pieces) out.insert(out.end(), p.data, p.data + p.size);
  return out;
}

namespace {

// Directory order: shorter names first, then by upper-cased name.
bool DirectoryLess(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return a.size() < b.size();
  return Upper(a) < Upper(b);
}

void PutEntry(std::uint8_t* e, const std::string& name, std::uint8_t type, std::uint32_t left,
              std::uint32_t right, std::uint32_t child, std::uint32_t start, std::uint64_t size) {
  for (std::size_t i = 0; i < name.size(); ++i)
    PutU16(e + 2 * i, static_cast<std::uint8_t>(name[i]));
  PutU16(e + 64, static_cast<std::uint16_t>(2 * (name.size() + 1)));
  e[66] = type;
  e[67] = 1;  // black: a tree of black nodes only is a valid red-black tree when balanced
  PutU32(e + 68, left);
  PutU32(e + 72, right);
  PutU32(e + 76, child);
  PutU32(e + 116, start);
  PutU64(e + 120, size);
}

std::uint64_t Sectors(std::uint64_t bytes, std::uint64_t unit) { return (bytes + unit - 1) / unit; }

}  // namespace

namespace {

struct StreamBytes {
  const std::string& name;
  ByteSpan bytes;
};

Status LayOut(const std::vector<StreamBytes>& streams, unsigned sectorShift,
              CompoundFileImage* out) {
  if (sectorShift != 9 && sectorShift != 12) return Status::InvalidArgument("sector shift");
  const std::uint64_t ss = std::uint64_t{1} << sectorShift;
  const std::uint64_t perSector = ss / 4;
  constexpr std::uint32_t kCutoff = 4096;

  // Sector numbers: big streams, mini-stream container, mini FAT, directory, FAT, DIFAT.
  std::vector<std::uint32_t> start(streams.size(), kEndOfChain);
  std::uint64_t next = 0;
  std::uint64_t miniSectors = 0;
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (streams[i].name.empty() || streams[i].name.size() > 31) {
      return Status::InvalidArgument("stream name must have 1 to 31 characters");
    }
    std::uint64_t size = streams[i].bytes.size;
    if (size >= kCutoff) {
      start[i] = static_cast<std::uint32_t>(next);
      next += Sectors(size, ss);
    } else if (size > 0) {
      start[i] = static_cast<std::uint32_t>(miniSectors);
      miniSectors += Sectors(size, kMiniSectorSize);
    }
  }
  const std::uint64_t containerStart = next;
  const std::uint64_t containerSectors = Sectors(miniSectors * kMiniSectorSize, ss);
  const std::uint64_t miniFatStart = containerStart + containerSectors;
  const std::uint64_t miniFatSectors = Sectors(miniSectors * 4, ss);
  const std::uint64_t dirStart = miniFatStart + miniFatSectors;
  const std::uint64_t dirSectors = Sectors((streams.size() + 1) * 128, ss);
  const std::uint64_t fatStart = dirStart + dirSectors;
  std::uint64_t fatSectors = 0, difatSectors = 0;
  for (;;) {
    std::uint64_t total = fatStart + fatSectors + difatSectors;
    std::uint64_t f = Sectors(total, perSector);
    std::uint64_t d = f > kHeaderDifatEntries ? Sectors(f - kHeaderDifatEntries, perSector - 1) : 0;
    if (f == fatSectors && d == difatSectors) break;
    fatSectors = f;
    difatSectors = d;
  }
  const std::uint64_t difatStart = fatStart + fatSectors;
  const std::uint64_t totalSectors = difatStart + difatSectors;
  if (totalSectors >= 0xFFFFFFF0u)
    return Status::InvalidArgument("workbook too large for a compound file");

  std::vector<std::uint32_t> fat(fatSectors * perSector, kFree);
  auto chain = [&fat](std::uint64_t first, std::uint64_t count) {
    for (std::uint64_t k = 0; k < count; ++k) {
      fat[first + k] = k + 1 == count ? kEndOfChain : static_cast<std::uint32_t>(first + k + 1);
    }
  };
  std::vector<std::uint32_t> miniFat(miniFatSectors * perSector, kFree);
  for (std::size_t i = 0; i < streams.size(); ++i) {
    std::uint64_t size = streams[i].bytes.size;
    if (size >= kCutoff) {
      chain(start[i], Sectors(size, ss));
    } else if (size > 0) {
      std::uint64_t n = Sectors(size, kMiniSectorSize);
      for (std::uint64_t k = 0; k < n; ++k) {
        miniFat[start[i] + k] =
            k + 1 == n ? kEndOfChain : static_cast<std::uint32_t>(start[i] + k + 1);
      }
    }
  }
  chain(containerStart, containerSectors);
  chain(miniFatStart, miniFatSectors);
  chain(dirStart, dirSectors);
  for (std::uint64_t k = 0; k < fatSectors; ++k) fat[fatStart + k] = kFatSector;
  for (std::uint64_t k = 0; k < difatSectors; ++k) fat[difatStart + k] = kDifatSector;

  // Header.
  out->head.assign(ss, 0);
  std::uint8_t* h = out->head.data();
  std::memcpy(h, kSignature, 8);
  PutU16(h + 24, 0x003E);
  PutU16(h + 26, sectorShift == 9 ? 3 : 4);
  PutU16(h + 28, 0xFFFE);
  PutU16(h + 30, static_cast<std::uint16_t>(sectorShift));
  PutU16(h + 32, 6);
  PutU32(h + 40, sectorShift == 9 ? 0 : static_cast<std::uint32_t>(dirSectors));
  PutU32(h + 44, static_cast<std::uint32_t>(fatSectors));
  PutU32(h + 48, static_cast<std::uint32_t>(dirStart));
  PutU32(h + 56, kCutoff);
  PutU32(h + 60, miniSectors ? static_cast<std::uint32_t>(miniFatStart) : kEndOfChain);
  PutU32(h + 64, static_cast<std::uint32_t>(miniFatSectors));
  PutU32(h + 68, difatSectors ? static_cast<std::uint32_t>(difatStart) : kEndOfChain);
  PutU32(h + 72, static_cast<std::uint32_t>(difatSectors));
  for (std::size_t i = 0; i < kHeaderDifatEntries; ++i) {
    PutU32(h + 76 + 4 * i, i < fatSectors ? static_cast<std::uint32_t>(fatStart + i) : kFree);
  }

  // Tail: mini-stream container, mini FAT, directory, FAT, DIFAT.
  out->tail.assign((totalSectors - containerStart) * ss, 0);
  std::uint8_t* t = out->tail.data();
  auto at = [&](std::uint64_t sector) { return t + (sector - containerStart) * ss; };
  for (std::size_t i = 0; i < streams.size(); ++i) {
    std::uint64_t size = streams[i].bytes.size;
    if (size > 0 && size < kCutoff) {
      std::memcpy(at(containerStart) + std::uint64_t{start[i]} * kMiniSectorSize,
                  streams[i].bytes.data, size);
    }
  }
  for (std::size_t i = 0; i < miniFat.size(); ++i) PutU32(at(miniFatStart) + 4 * i, miniFat[i]);

  std::vector<std::size_t> order(streams.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return DirectoryLess(streams[a].name, streams[b].name);
  });
  std::uint8_t* dir = at(dirStart);
  for (std::uint64_t k = 0; k < dirSectors * ss / 128; ++k) {  // unused entries: no siblings
    PutU32(dir + 128 * k + 68, kFree);
    PutU32(dir + 128 * k + 72, kFree);
    PutU32(dir + 128 * k + 76, kFree);
  }
  // Entry i + 1 holds streams[order[i]]; the tree is built over that sorted range.
  std::function<std::uint32_t(std::size_t, std::size_t)> build = [&](std::size_t lo,
                                                                     std::size_t hi) {
    if (lo >= hi) return kFree;
    std::size_t mid = lo + (hi - lo) / 2;
    const StreamBytes& s = streams[order[mid]];
    std::uint32_t left = build(lo, mid), right = build(mid + 1, hi);
    PutEntry(dir + 128 * (mid + 1), s.name, kTypeStream, left, right, kFree, start[order[mid]],
             s.bytes.size);
    return static_cast<std::uint32_t>(mid + 1);
  };
  std::uint32_t rootChild = build(0, order.size());
  PutEntry(dir, "Root Entry", kTypeRoot, kFree, kFree, rootChild,
           containerSectors ? static_cast<std::uint32_t>(containerStart) : kEndOfChain,
           miniSectors * kMiniSectorSize);
  (void)kTypeStorage;

  for (std::size_t i = 0; i < fat.size(); ++i) PutU32(at(fatStart) + 4 * i, fat[i]);
  for (std::uint64_t d = 0; d < difatSectors; ++d) {
    std::uint8_t* p = at(difatStart + d);
    for (std::uint64_t i = 0; i + 1 < perSector; ++i) {
      std::uint64_t f = kHeaderDifatEntries + d * (perSector - 1) + i;
      PutU32(p + 4 * i, f < fatSectors ? static_cast<std::uint32_t>(fatStart + f) : kFree);
    }
    PutU32(p + 4 * (perSector - 1),
           d + 1 < difatSectors ? static_cast<std::uint32_t>(difatStart + d + 1) : kEndOfChain);
  }

  out->padding.assign(ss, 0);
  out->pieces.clear();
  out->pieces.push_back({out->head.data(), out->head.size()});
  for (std::size_t i = 0; i < streams.size(); ++i) {
    std::uint64_t size = streams[i].bytes.size;
    if (size < kCutoff) continue;
    out->pieces.push_back({streams[i].bytes.data, size});
    if (size % ss) out->pieces.push_back({out->padding.data(), ss - size % ss});
  }
  out->pieces.push_back({out->tail.data(), out->tail.size()});
  return Status::OK();
}

}  // namespace

Status BuildCompoundFile(const std::vector<NamedStream>& streams, unsigned sectorShift,
                         CompoundFileImage* out) {
  std::vector<StreamBytes> spans;
  spans.reserve(streams.size());
  for (const NamedStream& s : streams) spans.push_back({s.name, {s.data->data(), s.data->size()}});
  return LayOut(spans, sectorShift, out);
}

Status FinishCompoundFileInPlace(const std::string& name, std::vector<std::uint8_t>* file) {
  if (file->size() < kCompoundHeaderRoom) return Status::InvalidArgument("no room for a header");
  const std::size_t size = file->size() - kCompoundHeaderRoom;
  CompoundFileImage image;
  if (size < 4096) {
    // Small streams live in the tail's mini-stream: this path copies, and costs nothing.
    const std::vector<std::uint8_t> stream(file->begin() + kCompoundHeaderRoom, file->end());
    Status s = BuildCompoundFile({{name, &stream}}, 9, &image);
    if (!s.ok()) return s;
    *file = image.Flatten();
    return Status::OK();
  }
  // The stream already follows the header's room, where the layout puts it (sector 0).
  Status s = LayOut({{name, {file->data() + kCompoundHeaderRoom, size}}}, 9, &image);
  if (!s.ok()) return s;
  std::memcpy(file->data(), image.head.data(), kCompoundHeaderRoom);
  if (size % 512 != 0) file->resize(file->size() + 512 - size % 512, 0);
  file->insert(file->end(), image.tail.begin(), image.tail.end());
  return Status::OK();
}

}  // namespace xls
