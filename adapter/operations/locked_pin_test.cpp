#include "adapter/operations/locked_pin.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace kelvrin::adapter {
namespace {

using Bytes = std::vector<CK_BYTE>;

void Keep(LockedPin& locked, const std::string& pin) {
  locked.Keep(reinterpret_cast<const CK_BYTE*>(pin.data()), pin.size());
}

std::string Text(LockedPin& locked) { return {locked.data(), locked.data() + locked.size()}; }

// What the memory holds after the PIN's length is overwritten.
Bytes Memory(const CK_BYTE* memory) { return {memory, memory + 255}; }

TEST(LockedPinTest, EmptyAndOverlongPinsAreNotKept) {
  LockedPin locked;
  EXPECT_FALSE(locked.has_pin()) << "nothing at first";
  EXPECT_EQ(locked.data(), nullptr);
  EXPECT_EQ(locked.size(), 0u);
  locked.Wipe();
  for (const std::size_t size : {0u, 256u, 100000u}) {
    Keep(locked, "1234");
    Keep(locked, std::string(size, '1'));
    EXPECT_FALSE(locked.has_pin()) << size;
    EXPECT_EQ(locked.data(), nullptr) << size;
  }
}

TEST(LockedPinTest, PinIsACopyThatANewOneOverwritesAsWipingDoes) {
  LockedPin locked;
  for (const std::size_t size : {1u, 6u, 255u}) {
    std::string pin(size, '7');
    Keep(locked, pin);
    pin.assign(size, '0');
    EXPECT_EQ(Text(locked), std::string(size, '7'));
    const CK_BYTE* const memory = locked.data();
    Keep(locked, "9");
    EXPECT_EQ(Text(locked), "9");
    Bytes nine(255, 0);
    nine[0] = '9';
    EXPECT_EQ(Memory(memory), nine) << "nothing of the old one";
    locked.Wipe();
    EXPECT_FALSE(locked.has_pin());
    EXPECT_EQ(locked.size(), 0u);
    EXPECT_EQ(Memory(memory), Bytes(255, 0));
  }
}

TEST(LockedPinTest, PinOfTheReaderHasNoBytes) {
  LockedPin locked;
  Keep(locked, "1234");
  const CK_BYTE* const memory = locked.data();
  locked.Keep(nullptr, 0);
  EXPECT_TRUE(locked.has_pin());
  EXPECT_EQ(locked.data(), nullptr);
  EXPECT_EQ(locked.size(), 0u);
  EXPECT_EQ(Memory(memory), Bytes(255, 0));
  locked.Wipe();
  EXPECT_FALSE(locked.has_pin());
}

TEST(LockedPinTest, PinIsNotKeptWithoutMemoryForIt) {
  rlimit limit = {};
  ASSERT_EQ(getrlimit(RLIMIT_AS, &limit), 0);
  const rlimit nothing = {.rlim_cur = 0, .rlim_max = limit.rlim_max};
  LockedPin locked;
  locked.Keep(nullptr, 0);
  const CK_BYTE pin = '1';
  ASSERT_EQ(setrlimit(RLIMIT_AS, &nothing), 0);
  locked.Keep(&pin, 1);
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  EXPECT_FALSE(locked.has_pin());
  EXPECT_EQ(locked.data(), nullptr);
  locked.Keep(&pin, 1);
  EXPECT_EQ(Text(locked), "1");
}

TEST(LockedPinTest, MemoryIsGivenBackAtTheEnd) {
  void* page = nullptr;
  const auto page_size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  {
    LockedPin locked;
    Keep(locked, "1234");
    page = locked.data() - reinterpret_cast<std::uintptr_t>(locked.data()) % page_size;
    EXPECT_EQ(msync(page, page_size, MS_ASYNC), 0);
  }
  EXPECT_NE(msync(page, page_size, MS_ASYNC), 0);
}

#ifdef __linux__
// What the system knows of the memory at `place`: two letters a flag.
std::string MemoryFlags(const void* place) {
  std::ifstream maps("/proc/self/smaps");
  const auto wanted = reinterpret_cast<std::uintptr_t>(place);
  bool is_here = false;
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    char dash = 0;
    // Each memory begins with its addresses.
    if (words >> std::hex >> from >> dash >> to && dash == '-') {
      is_here = from <= wanted && wanted < to;
    }
    if (is_here && line.starts_with("VmFlags:")) return line + " ";
  }
  return "";
}

bool HasFlag(const std::string& flags, const std::string& flag) {
  return flags.find(" " + flag + " ") != std::string::npos;
}

// Whether this process can lock memory at all: the system may refuse, and sanitizers swallow it.
bool MayLock() {
  const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const page =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  mlock(page, size);
  const bool is_locked = HasFlag(MemoryFlags(page), "lo");
  munmap(page, size);
  return is_locked;
}

TEST(LockedPinTest, MemoryIsLockedAndNotDumped) {
  LockedPin locked;
  for (const std::string pin : {"1234", "56"}) {
    Keep(locked, pin);
    const std::string flags = MemoryFlags(locked.data());
    EXPECT_EQ(HasFlag(flags, "lo"), MayLock()) << flags;
    EXPECT_TRUE(HasFlag(flags, "dd")) << flags;
    locked.Wipe();
  }
}
#endif

}  // namespace
}  // namespace kelvrin::adapter
