#include "app/model/export.h"

#include <algorithm>
#include <string_view>

#include "encoding/der.h"

namespace kelvrin::app {
namespace {

using encoding::ByteView;

constexpr size_t kPemLine = 64;
constexpr size_t kP256Point = 65;

std::string Base64(ByteView bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t count = std::min<size_t>(3, bytes.size() - i);
    unsigned group = 0;
    for (size_t j = 0; j < 3; ++j) group = group << 8U | (j < count ? bytes[i + j] : 0U);
    for (size_t j = 0; j < 4; ++j) {
      text += j <= count ? kDigits[group >> (18 - 6 * j) & 0x3FU] : '=';
    }
  }
  return text;
}

// A string of SSH's: its length in four bytes, most significant first, and its bytes.
void Append(ByteView bytes, Bytes* blob) {
  for (unsigned shift = 24;; shift -= 8) {
    blob->push_back(static_cast<unsigned char>(bytes.size() >> shift));
    if (shift == 0) break;
  }
  blob->insert(blob->end(), bytes.begin(), bytes.end());
}

void Append(std::string_view text, Bytes* blob) {
  Append(ByteView(reinterpret_cast<const unsigned char*>(text.data()), text.size()), blob);
}

// The numbers have SSH's form already in DER; DER has the modulus first, SSH the exponent.
std::optional<Bytes> RsaBlob(const Bytes& public_key) {
  const auto sequence = encoding::ReadOnlyElement(encoding::kDerSequence, public_key);
  if (!sequence) return std::nullopt;
  encoding::DerReader reader(sequence->content);
  const auto modulus = reader.Take(encoding::kDerInteger);
  const auto exponent = reader.Take(encoding::kDerInteger);
  if (!modulus || !exponent) return std::nullopt;
  Bytes blob;
  Append("ssh-rsa", &blob);
  Append(exponent->content, &blob);
  Append(modulus->content, &blob);
  return blob;
}

Bytes P256Blob(const Bytes& point) {
  Bytes blob;
  Append("ecdsa-sha2-nistp256", &blob);
  Append("nistp256", &blob);
  Append(point, &blob);
  return blob;
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

}  // namespace

std::optional<std::string> SshKey(const Certificate& certificate) {
  std::optional<Bytes> blob;
  const char* type = "ssh-rsa";
  if (certificate.key_type == KeyType::kRsa) {
    blob = RsaBlob(certificate.public_key);
  } else if (certificate.key_type == KeyType::kEllipticCurve && certificate.key_bits == 256 &&
             certificate.public_key.size() == kP256Point) {
    type = "ecdsa-sha2-nistp256";
    blob = P256Blob(certificate.public_key);
  }
  if (!blob) return std::nullopt;
  std::string comment = certificate.name;
  std::ranges::replace_if(comment, IsControl, ' ');
  return std::string(type) + " " + Base64(*blob) + (comment.empty() ? "" : " " + comment);
}

std::string Pem(const Certificate& certificate) {
  std::string text = "-----BEGIN CERTIFICATE-----\n";
  const std::string digits = Base64(certificate.der);
  for (size_t i = 0; i < digits.size(); i += kPemLine) text += digits.substr(i, kPemLine) + "\n";
  return text + "-----END CERTIFICATE-----\n";
}

std::string PemFileName(const Certificate& certificate) {
  std::string name = certificate.name;
  std::ranges::replace_if(name, [](char c) { return IsControl(c) || c == '/' || c == ':'; }, '-');
  if (name.empty() || name.front() == '.') name.insert(0, "certificate");
  return name + ".pem";
}

}  // namespace kelvrin::app
