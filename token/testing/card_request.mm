#include "token/testing/card_request.h"

#include <string.h>

namespace token_testing {

NSData *Make(const CardRequest &request, TokenSession *session, TKTokenSession *argument,
             NSData *data, NSData *key, TKTokenKeyAlgorithm *algorithm,
             TKTokenKeyExchangeParameters *parameters, NSError **error) {
  switch (request.init) {
    case scripted::Function::C_SignInit:
      return [session tokenSession:argument
                          signData:data
                          usingKey:key
                         algorithm:algorithm
                             error:error];
    case scripted::Function::C_DecryptInit:
      return [session tokenSession:argument
                       decryptData:data
                          usingKey:key
                         algorithm:algorithm
                             error:error];
    default:
      return [session tokenSession:argument
          performKeyExchangeWithPublicKey:data
                                 usingKey:key
                                algorithm:algorithm
                               parameters:parameters
                                    error:error];
  }
}

NSData *KeyOf(const CardRequest &request) {
  return KeyObjectID(request.init == scripted::Function::C_DeriveKey ? kEcId : kRsaId);
}

TKTokenKeyAlgorithm *AlgorithmOf(const CardRequest &request) {
  return Algorithm(request.init == scripted::Function::C_DeriveKey
                       ? kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1
                       : kSecKeyAlgorithmRSASignatureRaw);
}

CardRequestTest::CardRequestTest(const CardRequest &request)
    : request_(request),
      argument_(session_),
      data_(Data({'a', 'b', 'c'})),
      key_(KeyOf(request)),
      algorithm_(AlgorithmOf(request)),
      untouched_([NSError errorWithDomain:@"untouched" code:1 userInfo:nil]) {}

NSData *CardRequestTest::RunWith(NSError **error) {
  return Make(request_, session_, argument_, data_, key_, algorithm_, parameters_, error);
}

NSData *CardRequestTest::Run() {
  error_ = untouched_;
  return RunWith(&error_);
}

void CardRequestTest::Answer(const scripted::Bytes &bytes) {
  for (scripted::Answer *answer : {&card().signature, &card().plaintext, &card().derived_secret}) {
    answer->bytes = bytes;
  }
}

scripted::Argument CardRequestTest::SentData() {
  if (request_.init != scripted::Function::C_DeriveKey)
    return lindel().At(request_.result).arguments[1];
  CK_ECDH1_DERIVE_PARAMS parameters = {};
  const scripted::Bytes copy = lindel().At(request_.init).arguments[1].bytes;
  EXPECT_EQ(copy.size(), sizeof parameters);
  memcpy(&parameters, copy.data(), sizeof parameters);
  return {.kind = scripted::Argument::Kind::kBytes,
          .number = parameters.ulPublicDataLen,
          .address = parameters.pPublicData,
          .bytes = {parameters.pPublicData, parameters.pPublicData + parameters.ulPublicDataLen}};
}

std::string CardRequestTest::CardFailure() const {
  return std::string("TKErrorDomain -3 {NSLocalizedDescription: ") + request_.failed + "}";
}

std::vector<std::string> CardRequestTest::Errors() {
  std::vector<std::string> errors;
  for (const oslog::Line &line : recorder().lines()) {
    if (line.type == OS_LOG_TYPE_ERROR) errors.push_back(line.typed_text(oslog::ShowPrivate::kYes));
  }
  return errors;
}

std::string CardRequestTest::FindPrivate() const {
  const bool exchange = request_.init == scripted::Function::C_DeriveKey;
  return std::string("{0x0=0300000000000000, 0x102=") + (exchange ? "02}" : "01}");
}

}  // namespace token_testing
