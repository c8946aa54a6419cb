#include "platform/linux/host/digest_adaptors.h"

namespace host {

Adaptor hashing_adaptor(Hash hash, const std::string& next) {
  return {.algorithms = {next}, .input = [hash](const Request& request, const KeyFacts&) {
            Request hashed = request;
            hashed.data = digest(hash, request.data);
            return Result<Request>(std::move(hashed));
          }};
}

std::optional<Error> digest_size_error(Hash hash, const Bytes& digest) {
  if (digest.size() == digest_size(hash)) return std::nullopt;
  return parameter_error(std::string("a digest of ") + hash_name(hash) + " has " +
                         std::to_string(digest_size(hash)) + " bytes, not " +
                         std::to_string(digest.size()));
}

}  // namespace host
