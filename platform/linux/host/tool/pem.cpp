#include "platform/linux/host/tool/pem.h"

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>
#include <optional>

#include "platform/linux/ctk/certificate_details.h"

namespace tokenhost {
namespace {

using host::Bytes;
using host::HostError;
using host::Item;

// A certificate and its public key as PEM; OpenSSL can read it, since its key has been read.
Bytes ToPem(const Bytes& der) {
  const unsigned char* position = der.data();
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(
      d2i_X509(nullptr, &position, static_cast<long>(der.size())), X509_free);
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  PEM_write_bio_X509(memory.get(), certificate.get());
  PEM_write_bio_PUBKEY(memory.get(), X509_get0_pubkey(certificate.get()));
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &text);
  return {text, text + size};
}

}  // namespace

host::Result<Bytes> ExportKey(const std::vector<Item>& items, const Item& key) {
  for (const Item& item : items) {
    const Bytes& der = item.certificate;
    const auto public_key = certificate::PublicKeyOf(der.data(), der.size());
    if (public_key && public_key->data == key.facts.public_key) return ToPem(der);
  }
  return HostError("no certificate on the card belongs to the key " + key.object_id);
}

}  // namespace tokenhost
