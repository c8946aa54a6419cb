#import "platform/linux/host/key_service.h"

#include <algorithm>

#import "platform/linux/host/foundation.h"

namespace host {

struct Service {
  Result<Client> client;
  std::vector<Item> items;
  PinSource pin;

  // See Client::Perform; the error of the session that the token did not give.
  Result<Bytes> Perform(Operation operation, TKTokenKeychainKey *key, NSString *algorithm,
                        NSData *data) const {
    if (!client) return client.error();
    return client->Perform(operation, ItemOf(key), ConstantName(ToText(algorithm)), ToBytes(data),
                           pin);
  }

  // The item that the keychain has as this object.
  const Item &ItemOf(TKTokenKeychainKey *key) const {
    return *std::ranges::find(items, (objc_object *)key,
                              [](const Item &item) { return item.object.get(); });
  }
};

namespace {

const Algorithm *AlgorithmOf(NSString *value) { return FindAlgorithm(ConstantName(ToText(value))); }

// The token's word for what an application does with a private key.
Operation TokenOperation(SecKeyOperationType operation) {
  if (operation == kSecKeyOperationTypeSign) return Operation::kSign;
  if (operation == kSecKeyOperationTypeKeyExchange) return Operation::kKeyExchange;
  return Operation::kDecrypt;
}

NSError *ToNSError(const Error &error) {
  return [NSError errorWithDomain:ToString(error.domain)
                             code:error.code
                         userInfo:@{NSLocalizedDescriptionKey : ToString(error.description)}];
}

}  // namespace
}  // namespace host

@implementation KeyService

- (instancetype)initWithClient:(host::Result<host::Client>)client
                         items:(const std::vector<host::Item> &)items
                           pin:(const host::PinSource &)pin {
  self = [super init];
  if (self != nil) _made = new host::Service{std::move(client), items, pin};
  return self;
}

- (BOOL)supportsOperation:(SecKeyOperationType)operation
                 usingKey:(TKTokenKeychainKey *)key
                algorithm:(NSString *)algorithm {
  const host::Algorithm *known = host::AlgorithmOf(algorithm);
  return _made->client && known != nullptr &&
         known->operation() == host::TokenOperation(operation) &&
         _made->client->FindRoad(_made->ItemOf(key), *known);
}

- (NSData *)performOperation:(SecKeyOperationType)operation
                        data:(NSData *)data
                    usingKey:(TKTokenKeychainKey *)key
                   algorithm:(NSString *)algorithm
                       error:(NSError **)error {
  const host::Result<host::Bytes> result =
      _made->Perform(host::TokenOperation(operation), key, algorithm, data);
  if (result) return host::ToData(*result);
  if (error != nullptr) *error = host::ToNSError(result.error());
  return nil;
}

- (void)dealloc {
  delete _made;
  [super dealloc];
}

@end
