#include "bench/cards.h"

#include <dlfcn.h>

#include <array>
#include <cstring>
#include <stdexcept>

#include "platform/linux/host/testing/text_files.h"

namespace kelvrin::bench {
namespace {

namespace fs = std::filesystem;

constexpr int kCertificatesOfEveryCard = 2;
constexpr const char* kReaderName = "Bench Reader";

CardOptions OptionsOf(int certificates) {
  CardOptions options;
  options.name = "card-" + std::to_string(certificates);
  options.label = Cards::Label(certificates);
  options.extra_certificates = certificates - kCertificatesOfEveryCard;
  return options;
}

std::string PropertyList(const std::string& key, const std::string& value) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>" + key +
         "</key><string>" + value + "</string></dict></plist>\n";
}

void Check(CK_RV result, const char* what) {
  if (result == CKR_OK) return;
  throw std::runtime_error(std::string(what) + " failed with " + std::to_string(result));
}

}  // namespace

Cards::Cards(const std::vector<int>& certificates) : card_({.name = "none", .empty = true}) {
  for (const int number : certificates) card_.Add(OptionsOf(number));
  for (const int number : certificates) {
    WriteBundle(
        std::to_string(number), KELVRIN_ADAPTER_LIBRARY,
        "module = " + SoftHsmCard::Module().string() + "\ntoken-label = " + Label(number) + "\n");
  }
  WriteBundle("memory", MEMORY_MODULE_PATH, "");
}

std::string Cards::Label(int certificates) { return "bench-" + std::to_string(certificates); }

host::testing::OpensslKey Cards::PublicKey(int certificates, const std::string& key) const {
  const std::string der =
      host::testing::ReadText(card_.File(OptionsOf(certificates).name, key + ".der"));
  return host::testing::OpensslKey::OfCertificate(host::testing::BytesOf(der));
}

fs::path Cards::Bundle(int certificates) const {
  return card_.directory() / (std::to_string(certificates) + ".appex");
}

fs::path Cards::MemoryBundle() const { return card_.directory() / "memory.appex"; }

fs::path Cards::ModuleOf(const fs::path& bundle) {
  return bundle / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.dylib";
}

void Cards::WriteBundle(const std::string& name, const fs::path& module,
                        const std::string& configuration) const {
  const fs::path bundle = card_.directory() / (name + ".appex");
  const fs::path contents = bundle / "Contents";
  const fs::path resources = contents / "Resources";
  fs::create_directories(resources);
  host::testing::WriteText(contents / "Info.plist",
                           PropertyList("CFBundleIdentifier", "org.kelvrin.bench"));
  host::testing::WriteText(resources / "config.plist", PropertyList("readerName", kReaderName));
  const fs::path library = ModuleOf(bundle);
  fs::copy_file(module, library);
  if (configuration.empty()) return;
  host::testing::WriteText(fs::path(library).replace_extension(".conf"), configuration);
}

RawModule::RawModule() {
  const std::string path = SoftHsmCard::Module();
  library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library_ == nullptr) throw std::runtime_error(dlerror());
  const auto get_list =
      reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_, "C_GetFunctionList"));
  if (get_list == nullptr) throw std::runtime_error(path + " is no PKCS#11 module");
  Check(get_list(&functions_), "C_GetFunctionList");
  Check(functions_->C_Initialize(nullptr), "C_Initialize");
}

RawModule::~RawModule() {
  functions_->C_Finalize(nullptr);
  dlclose(library_);
}

CK_SESSION_HANDLE RawModule::OpenSession(const std::string& label) const {
  std::array<CK_SLOT_ID, 64> slots = {};
  CK_ULONG count = slots.size();
  Check(functions_->C_GetSlotList(CK_TRUE, slots.data(), &count), "C_GetSlotList");
  for (CK_ULONG i = 0; i < count; ++i) {
    CK_TOKEN_INFO info = {};
    Check(functions_->C_GetTokenInfo(slots[i], &info), "C_GetTokenInfo");
    std::string padded = label;
    padded.resize(sizeof(info.label), ' ');
    if (std::memcmp(info.label, padded.data(), sizeof(info.label)) != 0) continue;
    CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
    Check(functions_->C_OpenSession(slots[i], CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                    &session),
          "C_OpenSession");
    return session;
  }
  throw std::runtime_error("there is no token " + label);
}

void RawModule::AddDataObject(const std::string& label) const {
  CK_OBJECT_CLASS object_class = CKO_DATA;
  CK_BBOOL on_token = CK_TRUE;
  CK_BBOOL is_private = CK_FALSE;
  std::array<CK_ATTRIBUTE, 3> attributes = {{{CKA_CLASS, &object_class, sizeof(object_class)},
                                             {CKA_TOKEN, &on_token, sizeof(on_token)},
                                             {CKA_PRIVATE, &is_private, sizeof(is_private)}}};
  const CK_SESSION_HANDLE session = OpenSession(label);
  CK_OBJECT_HANDLE object = CK_INVALID_HANDLE;
  Check(functions_->C_CreateObject(session, attributes.data(), attributes.size(), &object),
        "C_CreateObject");
  Check(functions_->C_CloseSession(session), "C_CloseSession");
}

std::vector<CK_OBJECT_HANDLE> FindObjects(CK_FUNCTION_LIST* functions, CK_SESSION_HANDLE session,
                                          std::vector<CK_ATTRIBUTE> attributes) {
  Check(functions->C_FindObjectsInit(session, attributes.data(), attributes.size()),
        "C_FindObjectsInit");
  std::vector<CK_OBJECT_HANDLE> found;
  std::array<CK_OBJECT_HANDLE, 256> batch = {};
  CK_ULONG count = 0;
  do {
    Check(functions->C_FindObjects(session, batch.data(), batch.size(), &count), "C_FindObjects");
    found.insert(found.end(), batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(count));
  } while (count != 0);
  Check(functions->C_FindObjectsFinal(session), "C_FindObjectsFinal");
  return found;
}

CK_OBJECT_HANDLE FindPrivateKey(CK_FUNCTION_LIST* functions, CK_SESSION_HANDLE session,
                                CK_BYTE id) {
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  const auto found =
      FindObjects(functions, session,
                  {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, sizeof(id)}});
  if (found.empty()) throw std::runtime_error("the token lacks a private key");
  return found[0];
}

}  // namespace kelvrin::bench
