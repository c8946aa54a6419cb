#include "tests/macos/code_signature.h"

#include <llvm/Support/Endian.h>
#include <openssl/evp.h>

#include <stdexcept>

namespace kelvrin::macos {
namespace {

// Big-endian structures in a part of a slice. Reading beyond it throws.
class Blob {
 public:
  Blob(llvm::StringRef bytes, uint32_t magic) : bytes_(bytes) {
    if (Word(0) != magic) throw std::runtime_error("code signature: wrong magic number");
    if (Word(4) > bytes.size()) throw std::runtime_error("code signature: cut off");
    bytes_ = bytes.take_front(Word(4));
  }

  uint8_t Byte(uint64_t offset) const { return static_cast<uint8_t>(At(offset, 1)[0]); }
  uint32_t Word(uint64_t offset) const { return llvm::support::endian::read32be(At(offset, 4)); }
  uint64_t Long(uint64_t offset) const { return llvm::support::endian::read64be(At(offset, 8)); }
  std::string Bytes(uint64_t offset, uint64_t size) const { return {At(offset, size), size}; }
  // The text up to the next NUL.
  std::string Text(uint64_t offset) const {
    const llvm::StringRef rest(At(offset, 1), bytes_.size() - offset);
    return rest.take_until([](char character) { return character == '\0'; }).str();
  }
  // From an offset to the end.
  llvm::StringRef From(uint64_t offset) const { return {At(offset, 8), bytes_.size() - offset}; }

 private:
  const char* At(uint64_t offset, uint64_t size) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) {
      throw std::runtime_error("code signature: cut off");
    }
    return bytes_.data() + offset;
  }

  llvm::StringRef bytes_;
};

// By the offsets of a directory's fields; those used here came with version 2.4.
CodeDirectory ReadDirectory(const Blob& blob) {
  if (blob.Word(8) < llvm::MachO::CS_SUPPORTSEXECSEG) {
    throw std::runtime_error("code signature: old version");
  }
  CodeDirectory directory{.flags = blob.Word(12),
                          .identifier = blob.Text(blob.Word(20)),
                          .code_limit = blob.Long(56) != 0 ? blob.Long(56) : blob.Word(32),
                          .hash_type = blob.Byte(37),
                          .page_size = 0,
                          .executable_begin = blob.Long(64),
                          .executable_size = blob.Long(72),
                          .executable_flags = blob.Long(80),
                          .page_hashes = {}};
  // 0 stands for one page of any size, which the system takes only for other things than code.
  if (blob.Byte(39) >= 12 && blob.Byte(39) <= 14) directory.page_size = 1U << blob.Byte(39);
  for (uint64_t page = 0; page < blob.Word(28); ++page) {
    directory.page_hashes.push_back(
        blob.Bytes(blob.Word(16) + page * blob.Byte(36), blob.Byte(36)));
  }
  return directory;
}

std::string Sha256(llvm::StringRef bytes) {
  std::string digest(32, '\0');
  unsigned size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), &size,
                 EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 failed");
  }
  return digest;
}

// Compares the hashes with the pages before the signature.
void CheckPages(const std::string& where, llvm::StringRef bytes, const CodeDirectory& directory,
                Findings& findings) {
  ExpectEqual(where + ": hash type", std::to_string(llvm::MachO::CS_HASHTYPE_SHA256),
              std::to_string(directory.hash_type), findings);
  if (directory.page_size == 0) {
    findings.push_back(where + ": page size: expected one of 4096, 8192, 16384, got none");
    return;
  }
  const uint64_t size = directory.page_size;
  const llvm::StringRef code = bytes.take_front(directory.code_limit);
  const uint64_t pages = (code.size() + size - 1) / size;
  ExpectEqual(where + ": number of pages", std::to_string(pages),
              std::to_string(directory.page_hashes.size()), findings);
  for (uint64_t page = 0; page < pages && page < directory.page_hashes.size(); ++page) {
    if (Sha256(code.substr(page * size, size)) == directory.page_hashes[page]) continue;
    findings.push_back(where + ": page " + std::to_string(page) + " has another hash");
  }
}

// The directory's account of the segment with the code.
void CheckExecutableSegment(const std::string& where, const llvm::object::MachOObjectFile& file,
                            const CodeDirectory& directory, Findings& findings) {
  const bool executable = file.getHeader().filetype == llvm::MachO::MH_EXECUTE;
  ExpectEqual(where + ": executable segment's flags",
              std::to_string(executable ? llvm::MachO::CS_EXECSEG_MAIN_BINARY : 0U),
              std::to_string(directory.executable_flags), findings);
  for (const auto& command : file.load_commands()) {
    if (command.C.cmd != llvm::MachO::LC_SEGMENT_64) continue;
    const auto segment = file.getSegment64LoadCommand(command);
    if (llvm::StringRef(segment.segname) != "__TEXT") continue;
    ExpectEqual(where + ": executable segment",
                std::to_string(segment.fileoff) + " +" + std::to_string(segment.filesize),
                std::to_string(directory.executable_begin) + " +" +
                    std::to_string(directory.executable_size),
                findings);
  }
}

}  // namespace

CodeSignature ReadCodeSignature(const Slice& slice) {
  for (const auto& command : slice.file->load_commands()) {
    if (command.C.cmd != llvm::MachO::LC_CODE_SIGNATURE) continue;
    const auto place = slice.file->getLinkeditDataLoadCommand(command);
    const llvm::StringRef bytes = slice.file->getData();
    if (place.dataoff + uint64_t{place.datasize} != bytes.size()) {
      throw std::runtime_error("code signature: not the end of the slice");
    }
    const Blob all(bytes.drop_front(place.dataoff), llvm::MachO::CSMAGIC_EMBEDDED_SIGNATURE);
    CodeSignature signature{.begin = place.dataoff, .blob_types = {}, .directory = {}};
    for (uint32_t entry = 0; entry < all.Word(8); ++entry) {
      signature.blob_types.push_back(all.Word(12 + 8 * entry));
      if (signature.blob_types.back() != llvm::MachO::CSSLOT_CODEDIRECTORY) continue;
      signature.directory =
          ReadDirectory({all.From(all.Word(16 + 8 * entry)), llvm::MachO::CSMAGIC_CODEDIRECTORY});
    }
    return signature;
  }
  throw std::runtime_error(slice.architecture + ": no code signature");
}

Findings CheckCodeSignature(const MachOFile& file) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    const CodeSignature signature = ReadCodeSignature(slice);
    std::vector<std::string> types;
    types.reserve(signature.blob_types.size());
    for (const uint32_t type : signature.blob_types) types.push_back(std::to_string(type));
    // A signature with a certificate has more blobs.
    ExpectEqual(slice.architecture + ": signature's blobs",
                std::to_string(llvm::MachO::CSSLOT_CODEDIRECTORY), Joined(types), findings);
    const CodeDirectory& directory = signature.directory;
    ExpectEqual(slice.architecture + ": signature's flags",
                std::to_string(llvm::MachO::CS_ADHOC | llvm::MachO::CS_LINKER_SIGNED),
                std::to_string(directory.flags), findings);
    ExpectEqual(slice.architecture + ": identifier", file.path().filename().string(),
                directory.identifier, findings);
    ExpectEqual(slice.architecture + ": code limit", std::to_string(signature.begin),
                std::to_string(directory.code_limit), findings);
    CheckExecutableSegment(slice.architecture, *slice.file, directory, findings);
    CheckPages(slice.architecture, slice.file->getData(), directory, findings);
  }
  return findings;
}

}  // namespace kelvrin::macos
