// What a request costs in the extension alone: the module behind answers at once.
#include "bench/benchmarks.h"
#include "bench/cards.h"
#import "bench/extension.h"
#include "platform/linux/log/log_recorder.h"
#include "tests/module/memory_module.h"
#import "token/TokenSession.h"

namespace kelvrin::bench {
namespace {

// Lines of the log are made, and dropped where the system would take them over; or not made at all.
void SwitchLog(bool on) {
  for (const os_log_type_t type : {OS_LOG_TYPE_DEFAULT, OS_LOG_TYPE_INFO, OS_LOG_TYPE_ERROR}) {
    oslog::SetEnabled(type, on);
  }
}

// From now on every key is found, allows CKM_RSA_X_509 and signs without doing anything.
void AnswerAtOnce(MemoryModule &module) {
  module.is_recording = false;
  module.over.C_FindObjectsInit = [](auto...) { return CKR_OK; };
  module.over.C_FindObjects = [](auto, CK_OBJECT_HANDLE *objects, auto, CK_ULONG *count) {
    *objects = *count = 1;
    return CKR_OK;
  };
  module.over.C_GetAttributeValue = [](auto, auto, CK_ATTRIBUTE *attribute, auto) {
    const bool is_list = attribute->type == CKA_ALLOWED_MECHANISMS;
    attribute->ulValueLen = is_list ? sizeof(CK_MECHANISM_TYPE) : sizeof(CK_BBOOL);
    if (is_list) {
      *static_cast<CK_MECHANISM_TYPE *>(attribute->pValue) = CKM_RSA_X_509;
    } else {
      *static_cast<CK_BBOOL *>(attribute->pValue) = CK_TRUE;
    }
    return CKR_OK;
  };
  module.over.C_SignInit = [](auto...) { return CKR_OK; };
  module.over.C_Sign = [](auto, auto, auto, auto, CK_ULONG *size) {
    *size = 256;
    return CKR_OK;
  };
}

// The bundle over the memory module, with a card that has no certificate.
struct Requests {
  Requests() {
    module.AddCard();
    extension.emplace(cards.MemoryBundle());
    LogIn(*extension, "123456");
    AnswerAtOnce(module);
  }
  const Cards cards{{}};
  MemoryModule &module = LoadMemoryModule(Cards::ModuleOf(cards.MemoryBundle()));
  std::optional<endtoend::Inserted> extension;
};

void RegisterBoth(const std::string &name, const std::function<bool()> &call) {
  Register(name + "/log_off", call, [] { SwitchLog(false); });
  Register(name + "/log_on", call, [] { SwitchLog(true); });
}

}  // namespace

Fixture RegisterRequests() {
  auto fixture = std::make_shared<Requests>();
  TokenSession *session = fixture->extension->session();
  const SigningRequest block =
      MakeRequest(host::Bytes(256, 0x5A), endtoend::RsaKey(), kSecKeyAlgorithmRSASignatureRaw);
  const SigningRequest digest = MakeRequest(host::Bytes(32, 0x5A), endtoend::EcKey(),
                                            kSecKeyAlgorithmECDSASignatureDigestX962);
  const auto sign = [session](const SigningRequest &request) -> bool {
    @autoreleasepool {
      return Sign(session, request) != nil;
    }
  };
  RegisterBoth("requests/sign_256", [=] { return sign(block); });
  RegisterBoth("requests/sign_32", [=] { return sign(digest); });
  RegisterBoth("requests/support", [session, block]() -> bool {
    @autoreleasepool {
      return [session tokenSession:session
                 supportsOperation:TKTokenOperationSignData
                          usingKey:block.key
                         algorithm:block.algorithm];
    }
  });
  return fixture;
}

}  // namespace kelvrin::bench
