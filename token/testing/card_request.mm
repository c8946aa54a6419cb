#include "token/testing/card_request.h"

namespace token_testing {

__attribute__((noinline)) void DirtyStack() {
  volatile char room[65536];
  for (volatile char &byte : room) byte = '?';
}

CardRequestTest::CardRequestTest(const CardRequest &request)
    : request_(request),
      argument_(session_),
      data_(Data({'a', 'b', 'c'})),
      untouched_([NSError errorWithDomain:@"untouched" code:1 userInfo:nil]) {
  const bool exchange = request.init == scripted::Function::C_DeriveKey;
  key_ = KeyObjectID(exchange ? kEcId : kRsaId);
  algorithm_ = Algorithm(exchange ? kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1
                                  : kSecKeyAlgorithmRSASignatureRaw);
}

NSData *CardRequestTest::RunWith(NSError **error) {
  switch (request_.init) {
    case scripted::Function::C_SignInit:
      return [session_ tokenSession:argument_
                           signData:data_
                           usingKey:key_
                          algorithm:algorithm_
                              error:error];
    case scripted::Function::C_DecryptInit:
      return [session_ tokenSession:argument_
                        decryptData:data_
                           usingKey:key_
                          algorithm:algorithm_
                              error:error];
    default:
      return [session_ tokenSession:argument_
          performKeyExchangeWithPublicKey:data_
                                 usingKey:key_
                                algorithm:algorithm_
                               parameters:parameters_
                                    error:error];
  }
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
