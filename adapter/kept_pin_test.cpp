#include "adapter/kept_pin.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace kelvrin::adapter {
namespace {

void Keep(KeptPin& kept, const std::string& pin) {
  kept.Keep(reinterpret_cast<const CK_BYTE*>(pin.data()), pin.size());
}

std::string Text(KeptPin& kept) { return {kept.data(), kept.data() + kept.size()}; }

TEST(KeptPinTest, NothingIsKeptAtFirst) {
  KeptPin kept;
  EXPECT_FALSE(kept.has_pin());
  EXPECT_EQ(kept.data(), nullptr);
  EXPECT_EQ(kept.size(), 0u);
  kept.Wipe();
}

TEST(KeptPinTest, EmptyAndOverlongPinsAreNotKept) {
  KeptPin kept;
  for (const std::string& pin : {std::string(), std::string(256, '1'), std::string(100000, '1')}) {
    Keep(kept, "1234");
    Keep(kept, pin);
    EXPECT_FALSE(kept.has_pin());
    EXPECT_EQ(kept.data(), nullptr);
  }
  Keep(kept, std::string(255, '1'));
  EXPECT_EQ(Text(kept), std::string(255, '1'));
}

TEST(KeptPinTest, PinIsNotKeptWithoutMemoryForIt) {
  rlimit limit = {};
  ASSERT_EQ(getrlimit(RLIMIT_AS, &limit), 0);
  const rlimit nothing = {.rlim_cur = 0, .rlim_max = limit.rlim_max};
  KeptPin kept;
  kept.Keep(nullptr, 0);
  const CK_BYTE pin = '1';
  ASSERT_EQ(setrlimit(RLIMIT_AS, &nothing), 0);
  kept.Keep(&pin, 1);
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  EXPECT_FALSE(kept.has_pin());
  EXPECT_EQ(kept.data(), nullptr);
  kept.Keep(&pin, 1);
  EXPECT_EQ(Text(kept), "1");
}

TEST(KeptPinTest, WipingOverwritesTheMemory) {
  KeptPin kept;
  for (const std::size_t size : {std::size_t{1}, std::size_t{6}, std::size_t{255}}) {
    Keep(kept, std::string(size, '7'));
    const CK_BYTE* const memory = kept.data();
    kept.Wipe();
    EXPECT_FALSE(kept.has_pin());
    EXPECT_EQ(kept.size(), 0u);
    EXPECT_EQ(std::vector<CK_BYTE>(memory, memory + 255), std::vector<CK_BYTE>(255, 0));
  }
}

TEST(KeptPinTest, MemoryIsGivenBackAtTheEnd) {
  void* page = nullptr;
  const auto page_size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  {
    KeptPin kept;
    Keep(kept, "1234");
    page = kept.data() - reinterpret_cast<std::uintptr_t>(kept.data()) % page_size;
    EXPECT_EQ(msync(page, page_size, MS_ASYNC), 0);
  }
  EXPECT_NE(msync(page, page_size, MS_ASYNC), 0);
}

// Bytes that are not the PIN would cost one of the card's tries.
TEST(KeptPinTest, ChildOfAForkHasThePinOrNone) {
  KeptPin kept;
  Keep(kept, "1234");
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const bool good = kept.has_pin() ? Text(kept) == "1234" : kept.data() == nullptr;
    _exit(good ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Text(kept), "1234");
}

TEST(KeptPinTest, NewPinLeavesNothingOfTheOld) {
  KeptPin kept;
  Keep(kept, "123456");
  const CK_BYTE* const memory = kept.data();
  Keep(kept, "9");
  EXPECT_EQ(Text(kept), "9");
  EXPECT_EQ(std::vector<CK_BYTE>(memory + 1, memory + 6), std::vector<CK_BYTE>(5, 0));
}

TEST(KeptPinTest, PinOfTheReaderHasNoBytes) {
  KeptPin kept;
  Keep(kept, "1234");
  const CK_BYTE* const memory = kept.data();
  kept.Keep(nullptr, 0);
  EXPECT_TRUE(kept.has_pin());
  EXPECT_EQ(kept.data(), nullptr);
  EXPECT_EQ(kept.size(), 0u);
  EXPECT_EQ(std::vector<CK_BYTE>(memory, memory + 4), std::vector<CK_BYTE>(4, 0));
  Keep(kept, "56");
  EXPECT_EQ(Text(kept), "56");
  kept.Keep(nullptr, 0);
  kept.Wipe();
  EXPECT_FALSE(kept.has_pin());
}

TEST(KeptPinTest, PinIsACopy) {
  KeptPin kept;
  std::string pin = "1234";
  Keep(kept, pin);
  pin = "0000";
  EXPECT_EQ(Text(kept), "1234");
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

TEST(KeptPinTest, MemoryIsLockedAndNeitherDumpedNorGivenToTheChildOfAFork) {
  KeptPin kept;
  for (const std::string pin : {"1234", "56"}) {
    Keep(kept, pin);
    const std::string flags = MemoryFlags(kept.data());
    EXPECT_EQ(HasFlag(flags, "lo"), MayLock()) << flags;
    EXPECT_TRUE(HasFlag(flags, "dd")) << flags;
    EXPECT_TRUE(HasFlag(flags, "wf")) << flags;
    kept.Wipe();
  }
}

TEST(KeptPinTest, ChildOfAForkHasNoPin) {
  KeptPin kept;
  Keep(kept, "1234");
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(kept.has_pin() ? 1 : 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}
#endif

}  // namespace
}  // namespace kelvrin::adapter
