#include "platform/macho/signature.h"

#include <llvm/Support/Endian.h>
#include <llvm/Support/SHA256.h>

#include <algorithm>
#include <cstddef>

#include "platform/macho/image.h"

namespace macho {
namespace {

using llvm::MachO::CS_BlobIndex;
using llvm::MachO::CS_CodeDirectory;
using llvm::MachO::CS_SuperBlob;
using Bytes = llvm::ArrayRef<uint8_t>;

// The bytes of the slice that a command for link-time data names; none without the command.
Bytes SignatureOf(const Slice& slice) {
  const Bytes whole = llvm::arrayRefFromStringRef(slice.object().getData());
  for (const auto& command : slice.object().load_commands()) {
    if (command.C.cmd != llvm::MachO::LC_CODE_SIGNATURE) continue;
    const auto data = slice.object().getLinkeditDataLoadCommand(command);  // LLVM checks its range
    return whole.slice(data.dataoff, data.datasize);
  }
  return {};
}

// Numbers in signatures begin with their highest byte.
uint32_t Number(Bytes bytes, uint64_t offset) {
  if (offset + sizeof(uint32_t) > bytes.size()) throw LoadError("its signature ends too early");
  return llvm::support::endian::read32be(bytes.data() + offset);
}

Bytes FindCodeDirectory(Bytes signature) {
  const uint32_t count = Number(signature, offsetof(CS_SuperBlob, count));
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t entry = sizeof(CS_SuperBlob) + i * sizeof(CS_BlobIndex);
    if (Number(signature, entry) != llvm::MachO::CSSLOT_CODEDIRECTORY) continue;
    const uint32_t start = Number(signature, entry + offsetof(CS_BlobIndex, offset));
    if (Number(signature, start) != llvm::MachO::CSMAGIC_CODEDIRECTORY) break;
    return signature.drop_front(start);
  }
  throw LoadError("its signature names no pages");
}

void VerifyPages(Bytes whole, Bytes directory) {
  const uint32_t hashes = Number(directory, offsetof(CS_CodeDirectory, hashOffset));
  const uint32_t pages = Number(directory, offsetof(CS_CodeDirectory, nCodeSlots));
  const uint32_t end = Number(directory, offsetof(CS_CodeDirectory, codeLimit));
  const size_t hash_size = directory[offsetof(CS_CodeDirectory, hashSize)];
  const size_t page_size = size_t{1} << directory[offsetof(CS_CodeDirectory, pageSize)];
  for (size_t page = 0; page < pages; ++page) {
    const size_t start = page * page_size;
    if (end > whole.size() || start >= end || hashes + (page + 1) * hash_size > directory.size()) {
      throw LoadError("its signature ends too early");
    }
    const auto hash =
        llvm::SHA256::hash(whole.slice(start, std::min<size_t>(page_size, end - start)));
    if (Bytes(hash) != directory.slice(hashes + page * hash_size, hash_size)) {
      throw LoadError("page " + std::to_string(page) + " is not what was signed");
    }
  }
}

}  // namespace

void VerifySignature(const Slice& slice, const std::string& path) {
  const Bytes signature = SignatureOf(slice);
  if (signature.empty()) return;
  try {
    VerifyPages(llvm::arrayRefFromStringRef(slice.object().getData()),
                FindCodeDirectory(signature));
  } catch (const LoadError& error) {
    throw LoadError(path + ": " + error.what());
  }
}

}  // namespace macho
