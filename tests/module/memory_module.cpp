// The module itself: its list, what is recorded, its readers and cards.
#include "tests/module/memory_module.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "tests/module/memory_functions.h"

namespace kelvrin {

// One entry of the list: records the call, then asks `before`, the override, the standard.
template <typename... Arguments>
struct MemoryEntry<CK_RV (*)(Arguments...)> {
  static CK_RV NotSupported(Arguments...) { return CKR_FUNCTION_NOT_SUPPORTED; }

  template <CK_RV (*CK_FUNCTION_LIST::*entry)(Arguments...),
            std::function<CK_RV(Arguments...)> MemoryEntries::* over, scripted::Function function>
  static CK_RV Call(Arguments... arguments) {
    MemoryModule& module = MemoryModule::Instance();
    const char* const name = scripted::FunctionName(function);
    if (module.inside_++ != 0) ++module.overlaps;
    CK_RV result = module.is_recording ? module.Enter(name) : CKR_OK;
    if (result == CKR_OK && module.before) result = module.before(name);
    if (result == CKR_OK) {
      const auto& override = module.over.*over;
      result = override ? override(arguments...) : (module.standard.*entry)(arguments...);
    }
    --module.inside_;
    return result;
  }
};

namespace {

CK_RV GetFunctionList(CK_FUNCTION_LIST** list) {
  *list = MemoryModule::Instance().functions();
  return CKR_OK;
}

CK_FUNCTION_LIST StandardFunctions() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
#define KELVRIN_MEMORY_NOT_SUPPORTED(name) list.name = MemoryEntry<CK_##name>::NotSupported;
  SCRIPTED_FUNCTIONS(KELVRIN_MEMORY_NOT_SUPPORTED)
#undef KELVRIN_MEMORY_NOT_SUPPORTED
  list.C_GetFunctionList = GetFunctionList;
  AddMemorySlotFunctions(&list);
  AddMemoryObjectFunctions(&list);
  AddMemoryOperationFunctions(&list);
  return list;
}

}  // namespace

MemoryModule::MemoryModule() : standard(StandardFunctions()), list_() {
  list_.version = standard.version;
#define KELVRIN_MEMORY_CALL(name)                                                          \
  list_.name = MemoryEntry<CK_##name>::Call<&CK_FUNCTION_LIST::name, &MemoryEntries::name, \
                                            scripted::Function::name>;
  SCRIPTED_FUNCTIONS(KELVRIN_MEMORY_CALL)
#undef KELVRIN_MEMORY_CALL
}

MemoryModule& MemoryModule::Instance() {
  static auto* const module = new MemoryModule;  // used until the process is gone
  return *module;
}

void MemoryModule::Reset() {
  is_initialized = false;
  initialize_arguments.reset();
  reserved.clear();
  readers.clear();
  cards.clear();
  sessions.clear();
  keeps_sessions = false;
  next_slot = 7;
  next_session = 1;
  next_object = 1;
  rsa_keys = 0;
  ec_keys = 0;
  before = nullptr;
  over = {};
  is_recording = true;
  overlaps = 0;
  Heal();
  ForgetCalls();
}

CK_SLOT_ID MemoryModule::AddReader(const std::string& description) {
  readers.push_back({.id = next_slot++, .description = description});
  return readers.back().id;
}

MemoryCard& MemoryModule::AddCard(const MemoryCardOptions& options) {
  const auto free = std::find_if(readers.begin(), readers.end(), [&](const MemoryReader& reader) {
    return reader.description == options.reader && FindCard(reader.id) == nullptr;
  });
  const std::string name = options.reader.empty() ? "Memory reader" : options.reader;
  const CK_SLOT_ID slot = free != readers.end() ? free->id : AddReader(name);
  return cards.emplace_back(*this, slot, options);
}

void MemoryModule::Pull(MemoryCard& card) {
  card.is_present = false;
  card.is_logged_in = false;
  if (keeps_sessions) return;
  std::vector<CK_SESSION_HANDLE> ended;
  for (const auto& [handle, session] : sessions) {
    if (session.slot == card.slot) ended.push_back(handle);
  }
  for (const CK_SESSION_HANDLE handle : ended) EndSession(handle);
}

void MemoryModule::Insert(MemoryCard& card) {
  if (MemoryCard* const other = FindCard(card.slot); other != nullptr) Pull(*other);
  card.is_present = true;
}

MemoryReader* MemoryModule::FindReader(CK_SLOT_ID slot) {
  const auto found = std::find_if(readers.begin(), readers.end(),
                                  [&](const MemoryReader& reader) { return reader.id == slot; });
  return found == readers.end() ? nullptr : &*found;
}

MemoryCard* MemoryModule::FindCard(CK_SLOT_ID slot) {
  const auto found = std::find_if(cards.begin(), cards.end(), [&](const MemoryCard& card) {
    return card.slot == slot && card.is_present;
  });
  return found == cards.end() ? nullptr : &*found;
}

MemorySession* MemoryModule::FindSession(CK_SESSION_HANDLE session) {
  const auto found = sessions.find(session);
  return found == sessions.end() ? nullptr : &found->second;
}

MemoryObject* MemoryModule::FindObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  const MemorySession* const open = FindSession(session);
  MemoryCard* const card = open == nullptr ? nullptr : FindCard(open->slot);
  if (card == nullptr) return nullptr;
  const auto found = card->objects.find(object);
  if (found == card->objects.end()) return nullptr;
  return found->second.Is(CKA_PRIVATE) && !card->is_logged_in ? nullptr : &found->second;
}

void MemoryModule::EndSession(CK_SESSION_HANDLE session) {
  const auto ended = sessions.extract(session);
  if (ended.empty()) return;
  const CK_SLOT_ID slot = ended.mapped().slot;
  const bool was_last = std::none_of(sessions.begin(), sessions.end(),
                                     [&](const auto& entry) { return entry.second.slot == slot; });
  for (MemoryCard& card : cards) {
    if (card.slot != slot) continue;
    std::erase_if(card.objects, [&](const auto& entry) { return entry.second.session == session; });
    if (was_last) card.is_logged_in = false;
  }
}

CK_RV MemoryModule::Enter(const char* function) {
  const std::lock_guard lock(mutex_);
  calls_.push_back(function);
  if (failing_from_) {
    if (failing_from_->first <= 1) return failing_from_->second;
    --failing_from_->first;
  }
  const auto failure = failures_.find(function);
  if (failure == failures_.end()) return CKR_OK;
  const CK_RV result = failure->second.front();
  failure->second.pop_front();
  if (failure->second.empty()) failures_.erase(failure);
  return result;
}

void MemoryModule::FailNext(const std::string& function, CK_RV result) {
  const std::lock_guard lock(mutex_);
  failures_[function].push_back(result);
}

void MemoryModule::FailFrom(std::size_t n, CK_RV result) {
  const std::lock_guard lock(mutex_);
  failing_from_.emplace(n, result);
}

void MemoryModule::Heal() {
  const std::lock_guard lock(mutex_);
  failing_from_.reset();
  failures_.clear();
}

std::vector<std::string> MemoryModule::Calls() const {
  const std::lock_guard lock(mutex_);
  return {calls_.begin(), calls_.end()};
}

std::size_t MemoryModule::Count(std::string_view function) const {
  const std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count(calls_.begin(), calls_.end(), function));
}

std::size_t MemoryModule::Count() const {
  const std::lock_guard lock(mutex_);
  return calls_.size();
}

void MemoryModule::ForgetCalls() {
  const std::lock_guard lock(mutex_);
  calls_.clear();
}

MemoryModule& LoadMemoryModule(const std::filesystem::path& library) {
  void* const loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* const symbol = loaded == nullptr ? nullptr : dlsym(loaded, "memory_module");
  if (symbol == nullptr) throw std::runtime_error(dlerror());
  return *reinterpret_cast<MemoryModule* (*)()>(symbol)();
}

}  // namespace kelvrin
