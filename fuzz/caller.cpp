#include "fuzz/caller.h"

#include "adapter/virtual_keys.h"
#include "fuzz/entry_for_fuzzing.h"
#include "fuzz/expectations.h"

namespace kelvrin::fuzz {
CK_OBJECT_HANDLE Caller::Object() {
  const CK_OBJECT_HANDLE object = script_.UpTo(12);
  return object < 10 ? object : adapter::VirtualKeys::kFirstHandle + object - 10;
}

CK_MECHANISM Caller::Mechanism() {
  constexpr std::array<CK_MECHANISM_TYPE, 8> kTypes = {
      CKM_RSA_PKCS,     CKM_RSA_X_509,    CKM_ECDSA,           CKM_ECDSA_SHA1,
      CKM_ECDSA_SHA256, CKM_ECDH1_DERIVE, CKM_SHA256_RSA_PKCS, CKM_AES_CBC};
  CK_MECHANISM mechanism = {kTypes[script_.UpTo(kTypes.size() - 1)], nullptr, 0};
  if (mechanism.mechanism == CKM_ECDH1_DERIVE && script_.Coin()) {
    parameter_ = script_.Coin() ? Bytes(65, 4) : script_.Some(140);
    ecdh_ = {};
    ecdh_.kdf = CKD_NULL;
    ecdh_.pPublicData = Pointer(script_, parameter_);
    ecdh_.ulPublicDataLen = parameter_.size();
    mechanism.pParameter = &ecdh_;
    mechanism.ulParameterLen = sizeof(ecdh_);
  }
  return mechanism;
}

void Caller::CallOne() {
  switch (script_.UpTo(12)) {
    case 0:
      return CallLifecycle();
    case 1:
      return CallSlots();
    case 2:
      return CallSessions();
    case 3:
      return CallObjects();
    case 4:
      return CallNewObjects();
    case 5:
      return CallSearch();
    case 6:
      return CallInit();
    case 7:
    case 8:
      return CallBytes();
    case 9:
      return CallFinal();
    case 10:
      return CallOthers();
    case 11:
      return CallRoad();
    default:
      SwitchCopy();
      return CallRoad();
  }
}

void Caller::CallLifecycle() {
  CK_C_INITIALIZE_ARGS arguments = {};
  arguments.flags = script_.Byte();
  if (script_.Coin()) {
    p11_->C_Initialize(script_.Coin() ? &arguments : nullptr);
  } else {
    p11_->C_Finalize(script_.Byte() < 0x10 ? &arguments : nullptr);
  }
}

template <typename Entry, typename Call>
void Caller::List(const Call& call) {
  std::vector<Entry> list(script_.UpTo(40) + 1);
  const bool asks = script_.Coin();
  CK_ULONG count = list.size() - 1;
  const CK_ULONG room = count;
  if (call(asks ? nullptr : list.data(), &count) == CKR_OK && !asks) {
    Expect(count <= room, "more entries than the room has");
  }
}

void Caller::CallSlots() {
  const CK_SLOT_ID slot = script_.UpTo(4);
  CK_SLOT_INFO slot_info = {};
  CK_TOKEN_INFO token_info = {};
  CK_MECHANISM_INFO mechanism_info = {};
  CK_INFO info = {};
  CK_SLOT_ID event = 0;
  switch (script_.UpTo(7)) {
    case 0:
      return List<CK_SLOT_ID>([&](CK_SLOT_ID* list, CK_ULONG* count) {
        return p11_->C_GetSlotList(script_.Coin() ? CK_TRUE : CK_FALSE, list, count);
      });
    case 1:
      return List<CK_MECHANISM_TYPE>([&](CK_MECHANISM_TYPE* list, CK_ULONG* count) {
        return p11_->C_GetMechanismList(slot, list, count);
      });
    case 2:
      p11_->C_GetSlotInfo(slot, &slot_info);
      return;
    case 3:
      p11_->C_GetTokenInfo(slot, &token_info);
      return;
    case 4:
      p11_->C_GetMechanismInfo(slot, CKM_ECDSA, &mechanism_info);
      return;
    case 5:
      p11_->C_GetInfo(&info);
      return;
    case 6:
      p11_->C_InitToken(slot, parameter_.data(), parameter_.size(), token_info.label);
      return;
    default:
      p11_->C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr);
  }
}

void Caller::CallSessions() {
  CK_SESSION_HANDLE session = Session();
  CK_SESSION_INFO info = {};
  Bytes pin = script_.Some(20);
  CK_BYTE* const pin_pointer = Pointer(script_, pin);
  constexpr std::array<CK_USER_TYPE, 3> kUsers = {CKU_USER, CKU_SO, CKU_CONTEXT_SPECIFIC};
  switch (script_.UpTo(7)) {
    case 0:
      p11_->C_OpenSession(script_.UpTo(3), CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                          &session);
      return;
    case 1:
      p11_->C_CloseSession(session);
      return;
    case 2:
      p11_->C_CloseAllSessions(script_.UpTo(3));
      return;
    case 3:
      p11_->C_GetSessionInfo(session, &info);
      return;
    case 4:
      p11_->C_Logout(session);
      return;
    case 5:
      p11_->C_SetPIN(session, pin_pointer, pin.size(), pin.data(), pin.size());
      return;
    default:
      p11_->C_Login(session, kUsers[script_.UpTo(2)], pin_pointer, pin.size());
  }
}

}  // namespace kelvrin::fuzz
