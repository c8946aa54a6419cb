#include "platform/macho/unwind.h"

#include <dlfcn.h>
#include <llvm/BinaryFormat/Dwarf.h>

#include <map>

#include "platform/macho/frame_description.h"
#include "platform/macho/libsystem/libcxx.h"

namespace macho {
namespace {

using namespace llvm::dwarf;  // NOLINT(google-build-using-namespace): the names of encodings

// Writes the descriptions of an image's compactly described frames.
class Descriptions {
 public:
  // `personality` takes the place of the image's own for C++; null leaves it.
  Descriptions(const Image& image, void* personality) : image_(image), personality_(personality) {
    for (const CompactFrame& frame : ReadCompactFrames(*image.Find("__unwind_info"))) {
      if (KindOf(frame.encoding) == FrameKind::kDescribed) Add(frame);
    }
    out_.Put<uint32_t>(0);
  }

  const uint8_t* data() const { return out_.data(); }
  const std::vector<size_t>& places() const { return places_; }  // of the functions, bytes

 private:
  // Adds a function.
  void Add(const CompactFrame& frame) {
    const size_t common = Common(frame.personality);
    places_.push_back(out_.size());
    const size_t start = out_.Begin();
    out_.Put(static_cast<uint32_t>(out_.size() - common));
    out_.Put(reinterpret_cast<uint64_t>(image_.start) + frame.start);
    out_.Put(uint64_t{frame.end} - frame.start);
    if (frame.personality != 0) {
      out_.PutUleb(sizeof(uint64_t));
      out_.Put(frame.lsda == 0 ? 0 : reinterpret_cast<uint64_t>(image_.start) + frame.lsda);
    } else {
      out_.PutUleb(0);
    }
    DescribeFrame(frame, image_.start + frame.start, &out_);
    out_.End(start);
  }

  // Where the record lies that functions with the same personality share.
  size_t Common(uint32_t personality) {
    const auto known = common_.find(personality);
    if (known != common_.end()) return known->second;
    const size_t place = common_[personality] = out_.size();
    const size_t start = out_.Begin();
    out_.Put<uint32_t>(0);  // what tells it from a function
    out_.Put<uint8_t>(1);
    for (const char* text = personality != 0 ? "zPLR" : "zR"; *text != '\0'; ++text) {
      out_.Put(*text);
    }
    out_.Put<uint8_t>(0);
    out_.PutUleb(1);
    out_.Put<uint8_t>(0x78);  // saved registers lie in words of -8 bytes
    out_.Put(static_cast<uint8_t>(ReturnColumn()));
    if (personality != 0) {
      auto function = reinterpret_cast<uint64_t>(personality_);
      if (function == 0) memcpy(&function, image_.start + personality, sizeof(function));
      out_.PutUleb(1 + sizeof(function) + 1 + 1);
      out_.Put<uint8_t>(DW_EH_PE_absptr);
      out_.Put(function);
      out_.Put<uint8_t>(DW_EH_PE_absptr);
    } else {
      out_.PutUleb(1);
    }
    out_.Put<uint8_t>(DW_EH_PE_absptr);
    out_.End(start);
    return place;
  }

  const Image& image_;
  void* const personality_;
  FrameWriter out_;
  std::map<uint32_t, size_t> common_;  // by the personality's offset
  std::vector<size_t> places_;
};

using Register = void (*)(const void*);

// LLVM's unwinder, which Debian's libc++ uses, takes one description at a time; those that the
// image has in DWARF itself too.
void TellLlvm(const Image& image, const Descriptions& descriptions, Register add) {
  for (const size_t place : descriptions.places()) add(descriptions.data() + place);
  const Section* const frames = image.Find("__eh_frame");
  if (frames == nullptr) return;
  const uint8_t* const end = frames->start + frames->size;
  uint32_t words[2] = {};  // length, and 0 for a record that functions share
  for (const uint8_t* at = frames->start; at + sizeof(words) <= end; at += words[0] + 4) {
    memcpy(words, at, sizeof(words));
    if (words[0] == 0) break;
    if (words[1] != 0) add(at);
  }
}

// GCC's unwinder, which passes exceptions of Objective-C and of the program's own C++, takes all at
// once.
void TellGcc(const Descriptions& descriptions) {
  // It takes memory when it first looks into them, and under its lock; AddressSanitizer unwinds
  // when memory is taken, and would wait for ever.
  if (dlsym(RTLD_DEFAULT, "__asan_init") != nullptr) return;
  reinterpret_cast<Register>(dlsym(LibGcc(), "__register_frame"))(descriptions.data());
}

}  // namespace

// A personality only knows its own unwinder, so each unwinder gets the one that goes with it; both
// read the same tables.
void RegisterUnwinding(Image* image) {
  if (image->Find("__unwind_info") == nullptr) return;
  const auto for_llvm = std::make_shared<Descriptions>(*image, nullptr);
  TellLlvm(*image, *for_llvm, reinterpret_cast<Register>(dlsym(LibCxx(), "__register_frame")));
  const auto for_gcc =
      std::make_shared<Descriptions>(*image, dlsym(RTLD_DEFAULT, "__gxx_personality_v0"));
  TellGcc(*for_gcc);
  image->kept = {for_llvm, for_gcc};
}

}  // namespace macho
