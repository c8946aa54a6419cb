// The Objective-C classes, categories and protocols of the bundle's two programs.
#pragma once

#include <string>

namespace kelvrin::macos {

// The module's function list: its version and 68 functions.
inline std::string FunctionListEncoding() {
  std::string encoding = "^{_CK_FUNCTION_LIST={_CK_VERSION=CC}";
  for (int i = 0; i < 68; ++i) encoding += "^?";
  return encoding + "}";
}

// The extension's. Methods stand in the order of the sources; what the compiler adds to a class
// that adopts a protocol are the properties of the protocol NSObject.
inline std::string ExtensionTable() {
  std::string table = R"(
class TokenDriver : TKSmartCardTokenDriver <TKSmartCardTokenDriverDelegate>
  property hash TQ,R
  property superclass T#,R
  property description T@"NSString",R,C
  property debugDescription T@"NSString",?,R,C
  - tokenDriver:createTokenForSmartCard:AID:error: @48@0:8@16@24@32^@40

class Token : TKSmartCardToken <TKTokenDelegate>
  ivar _driver @"TokenDriver"
  ivar _module ^v
  ivar _p11 {P11}
  ivar _slotID Q
  ivar _session Q
  property driver T@"TokenDriver",R,V_driver
  property module T^v,N,V_module
  property p11 T{P11},N,V_p11
  property slotID TQ,N,V_slotID
  property session TQ,N,V_session
  property hash TQ,R
  property superclass T#,R
  property description T@"NSString",R,C
  property debugDescription T@"NSString",?,R,C
  - initWithSmartCard:AID:tokenDriver:error: @48@0:8@16@24@32^@40
  - dealloc v16@0:8
  - token:createSessionWithError: @32@0:8@16^@24
  - driver @16@0:8
  - module ^v16@0:8
  - setModule: v24@0:8^v16
  - p11 {P11}16@0:8
  - setP11: v24@0:8{P11}16
  - slotID Q16@0:8
  - setSlotID: v24@0:8Q16
  - session Q16@0:8
  - setSession: v24@0:8Q16

class TokenSession : TKSmartCardTokenSession <TKTokenSessionDelegate>
  ivar _tsToken @"Token"
  property tsToken T@"Token",R,V_tsToken
  property hash TQ,R
  property superclass T#,R
  property description T@"NSString",R,C
  property debugDescription T@"NSString",?,R,C
  - initWithToken: @24@0:8@16
  - tokenSession:beginAuthForOperation:constraint:error: @48@0:8@16q24@32^@40
  - tokenSession:supportsOperation:usingKey:algorithm: {BOOL}48@0:8@16q24@32@40
  - tokenSession:signData:usingKey:algorithm:error: @56@0:8@16@24@32@40^@48
  - tokenSession:decryptData:usingKey:algorithm:error: @56@0:8@16@24@32@40^@48
  - tokenSession:performKeyExchangeWithPublicKey:usingKey:algorithm:parameters:error: @64@0:8@16@24@32@40@48^@56
  - asHex: @24@0:8@16
  - tsToken @16@0:8
  - dealloc v16@0:8

class TSAuthOperation : TKTokenSmartCardPINAuthOperation
  ivar _session @"TokenSession"
  ivar _authID @"NSData"
  property session T@"TokenSession",R,V_session
  property authID T@"NSData",R,V_authID
  - initWithSession:authID: @32@0:8@16@24
  - finishWithError: {BOOL}24@0:8^@16
  - session @16@0:8
  - authID @16@0:8
  - dealloc v16@0:8

category TKTokenKeychainItem(KelvrinDataFormat)
  - setName: v24@0:8@16

protocol TKTokenDriverDelegate <NSObject>
  optional - tokenDriver:terminateToken: v32@0:8@"TKTokenDriver"16@"TKToken"24

protocol TKSmartCardTokenDriverDelegate <TKTokenDriverDelegate>
  - tokenDriver:createTokenForSmartCard:AID:error: @"TKSmartCardToken"48@0:8@"TKSmartCardTokenDriver"16@"TKSmartCard"24@"NSData"32^@40

protocol TKTokenDelegate <NSObject>
  - token:createSessionWithError: @"TKTokenSession"32@0:8@"TKToken"16^@24
  optional - token:terminateSession: v32@0:8@"TKToken"16@"TKTokenSession"24

protocol TKTokenSessionDelegate <NSObject>
  optional - tokenSession:beginAuthForOperation:constraint:error: @"TKTokenAuthOperation"48@0:8@"TKTokenSession"16q24@32^@40
  optional - tokenSession:supportsOperation:usingKey:algorithm: {BOOL}48@0:8@"TKTokenSession"16q24@32@"TKTokenKeyAlgorithm"40
  optional - tokenSession:signData:usingKey:algorithm:error: @"NSData"56@0:8@"TKTokenSession"16@"NSData"24@32@"TKTokenKeyAlgorithm"40^@48
  optional - tokenSession:decryptData:usingKey:algorithm:error: @"NSData"56@0:8@"TKTokenSession"16@"NSData"24@32@"TKTokenKeyAlgorithm"40^@48
  optional - tokenSession:performKeyExchangeWithPublicKey:usingKey:algorithm:parameters:error: @"NSData"64@0:8@"TKTokenSession"16@"NSData"24@32@"TKTokenKeyAlgorithm"40@"TKTokenKeyExchangeParameters"48^@56

protocol NSObject
  property hash TQ,R
  property superclass T#,R
  property description T@"NSString",R,C
  property debugDescription T@"NSString",?,R,C
  - isEqual: {BOOL}24@0:8@16
  - class #16@0:8
  - self @16@0:8
  - performSelector: @24@0:8:16
  - performSelector:withObject: @32@0:8:16@24
  - performSelector:withObject:withObject: @40@0:8:16@24@32
  - isProxy {BOOL}16@0:8
  - isKindOfClass: {BOOL}24@0:8#16
  - isMemberOfClass: {BOOL}24@0:8#16
  - conformsToProtocol: {BOOL}24@0:8@"Protocol"16
  - respondsToSelector: {BOOL}24@0:8:16
  - retain @16@0:8
  - release Vv16@0:8
  - autorelease @16@0:8
  - retainCount Q16@0:8
  - zone ^{_NSZone=}16@0:8
  - hash Q16@0:8
  - superclass #16@0:8
  - description @"NSString"16@0:8
  optional - debugDescription @"NSString"16@0:8
)";
  for (size_t at = table.find("{P11}"); at != std::string::npos; at = table.find("{P11}")) {
    table.replace(at, 5, FunctionListEncoding());
  }
  return table;
}

// The application's.
inline constexpr char kApplicationTable[] = R"(
class InstallationMessage : NSObject
  ivar _bundle @"NSBundle"
  - initWithBundle: @24@0:8@16
  - text: @24@0:8@16
  - hasExtension {BOOL}16@0:8
  - isInPlace {BOOL}16@0:8
  - title @16@0:8
  - explanation @16@0:8
  - closeButton @16@0:8
  - guideButton @16@0:8
  - guidePath @16@0:8
  - dealloc v16@0:8
)";

}  // namespace kelvrin::macos
