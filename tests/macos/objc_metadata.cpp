#include "tests/macos/objc_metadata.h"

#include <regex>
#include <stdexcept>
#include <utility>

#include "tests/macos/objc_image.h"

namespace kelvrin::macos {
namespace {

// Offsets in the runtime's records, which consist of pointers and pairs of 32-bit numbers.
namespace class_t {
constexpr uint64_t kIsa = 0, kSuperclass = 8, kData = 32;
}
namespace class_ro_t {
constexpr uint64_t kName = 24, kMethods = 32, kProtocols = 40, kIvars = 48, kProperties = 64;
}
namespace category_t {
constexpr uint64_t kName = 0, kClass = 8, kMethods = 16, kClassMethods = 24, kProtocols = 32,
                   kProperties = 40, kClassProperties = 48;
}
namespace protocol_t {
constexpr uint64_t kName = 8, kProtocols = 16, kMethods = 24, kProperties = 56, kSize = 64,
                   kExtendedTypes = 72, kClassProperties = 88;
}
constexpr uint32_t kRelativeMethods = 0x80000000;  // in the size of a method list's entries
constexpr uint32_t kEntrySizeMask = 0xfffc;

class Reader {
 public:
  explicit Reader(const Slice& slice) : image_(slice) {}

  std::vector<Metadata> Read() const {
    std::vector<Metadata> all;
    for (const uint64_t at : Pointers("__objc_classlist")) all.push_back(Class(at));
    for (const uint64_t at : Pointers("__objc_catlist")) all.push_back(Category(at));
    for (const uint64_t at : Pointers("__objc_protolist")) all.push_back(Protocol(at));
    return all;
  }

 private:
  using Lines = std::vector<MetadataLine>;

  // What a section of pointers leads to.
  std::vector<uint64_t> Pointers(std::string_view section) const {
    std::vector<uint64_t> all;
    const Range range = image_.Section(section).value_or(Range{});
    for (uint64_t at = 0; at < range.size; at += 8) {
      all.push_back(image_.AddressAt(range.address + at));
    }
    return all;
  }

  // The class_ro_t of a class_t; the low bits of the pointer belong to other languages.
  uint64_t Data(uint64_t class_at) const {
    return image_.AddressAt(class_at + class_t::kData) & ~uint64_t{7};
  }

  // The name of the class that a pointer leads to, here or in a library.
  std::string ClassNameAt(uint64_t at, const std::string& prefix) const {
    const Pointer pointer = image_.PointerAt(at);
    if (pointer.address != 0) return image_.TextAt(Data(pointer.address) + class_ro_t::kName);
    return pointer.symbol.starts_with(prefix) ? pointer.symbol.substr(prefix.size())
                                              : pointer.symbol;
  }

  Metadata Class(uint64_t at) const {
    const uint64_t data = Data(at);
    const uint64_t metaclass = image_.AddressAt(at + class_t::kIsa);
    const std::string superclass = ClassNameAt(at + class_t::kSuperclass, "_OBJC_CLASS_$_");
    const std::string other = ClassNameAt(metaclass + class_t::kSuperclass, "_OBJC_METACLASS_$_");
    Metadata result{
        "class " + image_.TextAt(data + class_ro_t::kName), " : " + superclass, {}, data};
    if (other != superclass) result.heading += " (of the metaclass: " + other + ")";
    result.heading += Adopted(data + class_ro_t::kProtocols);
    AddIvars(data + class_ro_t::kIvars, result.lines);
    AddProperties("property ", data + class_ro_t::kProperties, result.lines);
    AddProperties("class property ", Data(metaclass) + class_ro_t::kProperties, result.lines);
    AddMethods("- ", data + class_ro_t::kMethods, result.lines);
    AddMethods("+ ", Data(metaclass) + class_ro_t::kMethods, result.lines);
    return result;
  }

  Metadata Category(uint64_t at) const {
    const std::string name = ClassNameAt(at + category_t::kClass, "_OBJC_CLASS_$_") + "(" +
                             image_.TextAt(at + category_t::kName) + ")";
    Metadata result{"category " + name, Adopted(at + category_t::kProtocols), {}, at};
    AddProperties("property ", at + category_t::kProperties, result.lines);
    AddProperties("class property ", at + category_t::kClassProperties, result.lines);
    AddMethods("- ", at + category_t::kMethods, result.lines);
    AddMethods("+ ", at + category_t::kClassMethods, result.lines);
    return result;
  }

  Metadata Protocol(uint64_t at) const {
    if (image_.Number<uint32_t>(at + protocol_t::kSize) <= protocol_t::kClassProperties) {
      throw std::runtime_error("expected a protocol with extended types, got a shorter one");
    }
    Metadata result{"protocol " + image_.TextAt(at + protocol_t::kName),
                    Adopted(at + protocol_t::kProtocols),
                    {},
                    at};
    AddProperties("property ", at + protocol_t::kProperties, result.lines);
    AddProperties("class property ", at + protocol_t::kClassProperties, result.lines);
    // One list of types for all methods, in this order.
    uint64_t types = image_.AddressAt(at + protocol_t::kExtendedTypes);
    uint64_t list = at + protocol_t::kMethods;
    for (const char* kind : {"- ", "+ ", "optional - ", "optional + "}) {
      AddMethods(kind, list, result.lines, &types);
      list += 8;
    }
    return result;
  }

  // " <NAME, ...>", or nothing.
  std::string Adopted(uint64_t at) const {
    const uint64_t list = image_.AddressAt(at);
    if (list == 0) return "";
    const auto count = image_.Number<uint64_t>(list);
    std::string names;
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t protocol = image_.AddressAt(list + 8 + 8 * i);
      names += (i == 0 ? "" : ", ") + image_.TextAt(protocol + protocol_t::kName);
    }
    return count == 0 ? "" : " <" + names + ">";
  }

  // The addresses of a list's entries. The list begins with the size of an entry, in whose high
  // bits a method list has flags, and their number.
  std::vector<uint64_t> Entries(uint64_t list) const {
    if (list == 0) return {};
    const uint32_t size = image_.Number<uint32_t>(list) & kEntrySizeMask;
    const auto count = image_.Number<uint32_t>(list + 4);
    std::vector<uint64_t> all(count);
    for (uint32_t i = 0; i < count; ++i) all[i] = list + 8 + uint64_t{size} * i;
    return all;
  }

  void AddIvars(uint64_t at, Lines& lines) const {
    for (const uint64_t entry : Entries(image_.AddressAt(at))) {
      lines.push_back(
          {"ivar " + image_.TextAt(entry + 8) + " " + image_.TextAt(entry + 16), entry});
    }
  }

  void AddProperties(const std::string& kind, uint64_t at, Lines& lines) const {
    for (const uint64_t entry : Entries(image_.AddressAt(at))) {
      lines.push_back({kind + image_.TextAt(entry) + " " + image_.TextAt(entry + 8), entry});
    }
  }

  // What a relative method list's entry leads to: a distance from where the distance stands.
  uint64_t Relative(uint64_t at) const {
    return at + static_cast<uint64_t>(int64_t{image_.Number<int32_t>(at)});
  }

  // Extended types, where a protocol has them, are read on from `types` and stand instead of the
  // plain ones.
  void AddMethods(const std::string& kind, uint64_t at, Lines& lines,
                  uint64_t* extended = nullptr) const {
    const uint64_t list = image_.AddressAt(at);
    const bool relative = list != 0 && (image_.Number<uint32_t>(list) & kRelativeMethods) != 0;
    for (const uint64_t entry : Entries(list)) {
      std::string text = kind + image_.TextAt(relative ? Relative(entry) : entry) + " ";
      const std::string types =
          relative ? image_.Text(Relative(entry + 4)) : image_.TextAt(entry + 8);
      text += extended == nullptr ? types : Extended(types, *extended);
      lines.push_back({std::move(text), entry});
    }
  }

  // The extended types that come next. They must say the same as the plain ones.
  std::string Extended(const std::string& plain, uint64_t& at) const {
    std::string extended = image_.TextAt(at);
    at += 8;
    static const std::regex kName("\"[^\"]*\"");
    if (std::regex_replace(extended, kName, "") == plain) return extended;
    return extended + " (without names: " + plain + ")";
  }

  const ObjcImage image_;
};

}  // namespace

std::vector<Metadata> ReadMetadata(const Slice& slice) { return Reader(slice).Read(); }

}  // namespace kelvrin::macos
