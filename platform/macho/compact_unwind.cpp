#include "platform/macho/compact_unwind.h"

#include <cstring>
#include <map>

namespace macho {
namespace {

// The section's beginning; offsets count from here.
struct Header {
  uint32_t version;
  uint32_t encodings, encoding_count;         // of the whole image, 4 bytes each
  uint32_t personalities, personality_count;  // 4 bytes each
  uint32_t index, index_count;
};

// The functions from `start` on stand in a page of the second level; the last entry ends the list.
struct IndexEntry {
  uint32_t start, page, lsdas;
};

struct LsdaEntry {
  uint32_t function, lsda;
};

// A page lists its functions at length, or in a word each with an index of encodings.
struct PageHeader {
  uint32_t kind;
  uint16_t entries, entry_count;
  uint16_t encodings, encoding_count;  // of a page of words
};
constexpr uint32_t kAtLength = 2;

class Reader {
 public:
  explicit Reader(const Section& section)
      : bytes_(section.start), header_(Read<Header>(0)), lsdas_(Lsdas()) {}

  std::vector<CompactFrame> Frames() const {
    std::vector<CompactFrame> frames;
    for (uint32_t i = 0; i + 1 < header_.index_count; ++i) {
      const auto entry = Index(i);
      if (entry.page != 0) AddPage(entry, &frames);
    }
    if (frames.empty()) return frames;
    for (size_t i = 0; i + 1 < frames.size(); ++i) frames[i].end = frames[i + 1].start;
    frames.back().end = Index(header_.index_count - 1).start;
    return frames;
  }

 private:
  template <typename T>
  T Read(uint64_t offset) const {
    T value;
    memcpy(&value, bytes_ + offset, sizeof(value));
    return value;
  }
  IndexEntry Index(uint32_t place) const {
    return Read<IndexEntry>(header_.index + place * sizeof(IndexEntry));
  }

  std::map<uint32_t, uint32_t> Lsdas() const {
    std::map<uint32_t, uint32_t> found;
    if (header_.index_count == 0) return found;
    const uint32_t end = Index(header_.index_count - 1).lsdas;
    for (uint32_t at = Index(0).lsdas; at < end; at += sizeof(LsdaEntry)) {
      const auto entry = Read<LsdaEntry>(at);
      found[entry.function] = entry.lsda;
    }
    return found;
  }

  uint32_t Encoding(uint32_t page, const PageHeader& header, uint32_t which) const {
    return which < header_.encoding_count
               ? Read<uint32_t>(header_.encodings + 4 * which)
               : Read<uint32_t>(page + header.encodings + 4 * (which - header_.encoding_count));
  }

  void AddPage(const IndexEntry& entry, std::vector<CompactFrame>* frames) const {
    const auto header = Read<PageHeader>(entry.page);
    for (uint64_t i = 0; i < header.entry_count; ++i) {
      const uint64_t at = entry.page + header.entries;
      if (header.kind == kAtLength) {
        Add(Read<uint32_t>(at + 8 * i), Read<uint32_t>(at + 8 * i + 4), frames);
      } else {
        const auto word = Read<uint32_t>(at + 4 * i);
        Add(entry.start + (word & 0xffffff), Encoding(entry.page, header, word >> 24), frames);
      }
    }
  }

  void Add(uint32_t start, uint32_t encoding, std::vector<CompactFrame>* frames) const {
    const auto lsda = lsdas_.find(start);
    const uint32_t personality = (encoding >> 28) & 3;
    frames->push_back(
        {start, 0, encoding, lsda == lsdas_.end() ? 0 : lsda->second,
         personality == 0 ? 0 : Read<uint32_t>(header_.personalities + 4 * (personality - 1))});
  }

  const uint8_t* const bytes_;
  const Header header_;
  const std::map<uint32_t, uint32_t> lsdas_;  // by the function's offset
};

}  // namespace

std::vector<CompactFrame> ReadCompactFrames(const Section& section) {
  return Reader(section).Frames();
}

}  // namespace macho
