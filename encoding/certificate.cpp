#include "encoding/certificate.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "encoding/der.h"
#include "encoding/elliptic_curve.h"

namespace kelvrin::encoding {
namespace {

constexpr std::size_t kMaxSize = std::size_t{1} << 20;

// Tags that a certificate gives its own meaning.
constexpr unsigned char kVersion = 0xa0;
constexpr unsigned char kIssuerUniqueId = 0x81;
constexpr unsigned char kSubjectUniqueId = 0x82;
constexpr unsigned char kExtensions = 0xa3;

// Contents of object identifiers.
constexpr std::array<unsigned char, 9> kRsaEncryption = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                         0x0d, 0x01, 0x01, 0x01};
constexpr std::array<unsigned char, 7> kEcPublicKey = {0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01};
constexpr std::array<unsigned char, 3> kKeyUsage = {0x55, 0x1d, 0x0f};
constexpr std::array<unsigned char, 3> kBasicConstraints = {0x55, 0x1d, 0x13};

Bytes Copy(ByteView bytes) { return {bytes.begin(), bytes.end()}; }

// An AlgorithmIdentifier.
struct Algorithm {
  ByteView identifier;
  std::optional<DerElement> parameters;
};

std::optional<Algorithm> TakeAlgorithm(DerReader* reader) {
  const auto sequence = reader->Take(kDerSequence);
  if (!sequence) return std::nullopt;
  DerReader inside(sequence->content);
  const auto identifier = inside.Take(kDerObjectIdentifier);
  if (!identifier || !IsObjectIdentifier(identifier->content)) return std::nullopt;
  const Algorithm algorithm = {identifier->content, inside.Take()};
  return inside.IsAtEnd() ? std::optional(algorithm) : std::nullopt;
}

std::optional<DerBits> TakeBits(DerReader* reader) {
  const auto element = reader->Take(kDerBitString);
  return element ? ReadBitString(element->content) : std::nullopt;
}

// One AttributeTypeAndValue of a name.
bool TakeAttribute(DerReader* reader) {
  const auto sequence = reader->Take(kDerSequence);
  if (!sequence) return false;
  DerReader inside(sequence->content);
  const auto type = inside.Take(kDerObjectIdentifier);
  return type && IsObjectIdentifier(type->content) && inside.Take() && inside.IsAtEnd();
}

// A Name, whole; nothing when it is none.
std::optional<ByteView> TakeName(DerReader* reader) {
  const auto sequence = reader->Take(kDerSequence);
  if (!sequence) return std::nullopt;
  DerReader names(sequence->content);
  while (!names.IsAtEnd()) {
    const auto set = names.Take(kDerSet);
    if (!set || set->content.empty()) return std::nullopt;
    DerReader attributes(set->content);
    while (!attributes.IsAtEnd()) {
      if (!TakeAttribute(&attributes)) return std::nullopt;
    }
  }
  return sequence->whole;
}

// The version, which is there unless it is the first one.
bool TakeVersion(DerReader* reader) {
  const auto version = reader->Take(kVersion);
  if (!version) return true;
  const auto number = ReadOnlyElement(kDerInteger, version->content);
  return number && number->content.size() == 1 && number->content.front() <= 2;
}

bool TakeSerialNumber(DerReader* reader) {
  const auto number = reader->Take(kDerInteger);
  return number && IsDerInteger(number->content);
}

// Who uses a certificate looks at its dates.
bool TakeValidity(DerReader* reader) {
  const auto validity = reader->Take(kDerSequence);
  if (!validity) return false;
  DerReader times(validity->content);
  for (int i = 0; i < 2; ++i) {
    if (!times.Take(kDerUtcTime) && !times.Take(kDerGeneralizedTime)) return false;
  }
  return times.IsAtEnd();
}

bool TakeUniqueIds(DerReader* reader) {
  for (const unsigned char tag : {kIssuerUniqueId, kSubjectUniqueId}) {
    const auto id = reader->Take(tag);
    if (id && !ReadBitString(id->content)) return false;
  }
  return true;
}

// RSA has a NULL for parameters, which some leave out.
bool HasNoParameters(const Algorithm& algorithm) {
  return !algorithm.parameters ||
         (algorithm.parameters->tag == kDerNull && algorithm.parameters->content.empty());
}

void ReadRsaKey(const Algorithm& algorithm, ByteView key, CertificateFacts* facts) {
  const auto sequence = ReadOnlyElement(kDerSequence, key);
  if (!HasNoParameters(algorithm) || !sequence) return;
  DerReader numbers(sequence->content);
  const auto first = numbers.Take(kDerInteger);
  const auto second = numbers.Take(kDerInteger);
  if (!first || !second || !numbers.IsAtEnd()) return;
  const auto modulus = ReadPositiveInteger(first->content);
  const auto public_exponent = ReadPositiveInteger(second->content);
  if (!modulus || !public_exponent) return;
  facts->modulus = Copy(*modulus);
  facts->public_exponent = Copy(*public_exponent);
  facts->key_type = CKK_RSA;
}

void ReadEcKey(const Algorithm& algorithm, ByteView point, CertificateFacts* facts) {
  if (!algorithm.parameters) return;
  const ByteView curve = algorithm.parameters->whole;
  const std::size_t size = CurveSize(curve);  // 0 for one that is spelt out, too
  // A compressed point would have to be expanded.
  constexpr unsigned char kUncompressed = 4;
  if (size == 0 || point.size() != 1 + 2 * size || point.front() != kUncompressed) return;
  facts->ec_parameters = Copy(curve);
  facts->ec_point = Copy(point);
  facts->key_type = CKK_EC;
}

// The SubjectPublicKeyInfo. False when it is none; a key that cannot be used has no type.
bool TakeKey(DerReader* reader, CertificateFacts* facts) {
  const auto sequence = reader->Take(kDerSequence);
  if (!sequence) return false;
  DerReader inside(sequence->content);
  const auto algorithm = TakeAlgorithm(&inside);
  const auto bits = TakeBits(&inside);
  if (!algorithm || !bits || !inside.IsAtEnd()) return false;
  if (bits->unused != 0) return true;
  if (std::ranges::equal(algorithm->identifier, kRsaEncryption)) {
    ReadRsaKey(*algorithm, bits->bytes, facts);
  } else if (std::ranges::equal(algorithm->identifier, kEcPublicKey)) {
    ReadEcKey(*algorithm, bits->bytes, facts);
  }
  return true;
}

// One extension's value among others; nothing unless it is there exactly once.
class Extension {
 public:
  void Add(ByteView value) {
    value_ = value;
    ++count_;
  }
  bool IsMissing() const { return count_ == 0; }
  std::optional<ByteView> value() const { return count_ == 1 ? value_ : std::nullopt; }

 private:
  std::optional<ByteView> value_;
  int count_ = 0;
};

struct Extensions {
  Extension basic_constraints;
  Extension key_usage;
};

bool TakeExtension(DerReader* reader, Extensions* extensions) {
  const auto sequence = reader->Take(kDerSequence);
  if (!sequence) return false;
  DerReader inside(sequence->content);
  const auto identifier = inside.Take(kDerObjectIdentifier);
  const auto critical = inside.Take(kDerBoolean);
  const auto value = inside.Take(kDerOctetString);
  if (!identifier || !IsObjectIdentifier(identifier->content) || !value || !inside.IsAtEnd() ||
      (critical && critical->content.size() != 1)) {
    return false;
  }
  if (std::ranges::equal(identifier->content, kBasicConstraints)) {
    extensions->basic_constraints.Add(value->content);
  } else if (std::ranges::equal(identifier->content, kKeyUsage)) {
    extensions->key_usage.Add(value->content);
  }
  return true;
}

bool TakeExtensions(DerReader* reader, Extensions* extensions) {
  const auto tagged = reader->Take(kExtensions);
  if (!tagged) return true;
  const auto sequence = ReadOnlyElement(kDerSequence, tagged->content);
  if (!sequence) return false;
  DerReader list(sequence->content);
  while (!list.IsAtEnd()) {
    if (!TakeExtension(&list, extensions)) return false;
  }
  return true;
}

// The content of the element that the extension's value begins with; what follows changes nothing.
std::optional<ByteView> ContentOf(const Extension& extension, unsigned char tag) {
  const std::optional<ByteView> value = extension.value();
  if (!value) return std::nullopt;
  DerReader reader(*value);
  const auto element = reader.Take(tag);
  return element ? std::optional(element->content) : std::nullopt;
}

// Whether basicConstraints, if there, are sound; sets the fact that they tell. Any byte but zero is
// a TRUE: not every issuer writes the one that DER asks for.
bool ReadBasicConstraints(const Extension& extension, CertificateFacts* facts) {
  if (extension.IsMissing()) return true;
  const auto sequence = ContentOf(extension, kDerSequence);
  if (!sequence) return false;
  DerReader inside(*sequence);
  const auto is_ca = inside.Take(kDerBoolean);
  const auto path_length = inside.Take(kDerInteger);
  if (!inside.IsAtEnd() || (is_ca && is_ca->content.size() != 1) ||
      (path_length && !IsDerInteger(path_length->content))) {
    return false;
  }
  facts->is_ca = is_ca && is_ca->content.front() != 0;
  const bool is_negative = path_length && (path_length->content.front() & 0x80) != 0;
  return !is_negative;
}

// Whether keyUsage is there and names the signing of certificates and none of the uses that a
// person's key has.
bool SignsCertificatesOnly(const Extension& extension) {
  const auto content = ContentOf(extension, kDerBitString);
  const auto bits = content ? ReadBitString(*content) : std::nullopt;
  if (!bits || bits->bytes.empty()) return false;
  unsigned usage = bits->bytes.front();
  if (bits->bytes.size() == 1) usage &= 0xffU << bits->unused;
  constexpr unsigned kCertificateSigning = 0x04;
  constexpr unsigned kOtherUses = 0xf8;  // digitalSignature to keyAgreement
  return (usage & kCertificateSigning) != 0 && (usage & kOtherUses) == 0;
}

// The TBSCertificate.
bool ReadContents(ByteView contents, CertificateFacts* facts) {
  DerReader reader(contents);
  if (!TakeVersion(&reader) || !TakeSerialNumber(&reader) || !TakeAlgorithm(&reader)) return false;
  const auto issuer = TakeName(&reader);
  if (!issuer || !TakeValidity(&reader)) return false;
  const auto subject = TakeName(&reader);
  if (!subject || !TakeKey(&reader, facts)) return false;
  Extensions extensions;
  if (!TakeUniqueIds(&reader) || !TakeExtensions(&reader, &extensions)) return false;
  facts->issuer = Copy(*issuer);
  facts->subject = Copy(*subject);
  // Of a certificate whose constraints cannot be trusted the usage is not believed either.
  const bool is_sound = ReadBasicConstraints(extensions.basic_constraints, facts);
  facts->signs_certificates_only = is_sound && SignsCertificatesOnly(extensions.key_usage);
  return reader.IsAtEnd();
}

}  // namespace

std::optional<CertificateFacts> ReadCertificate(ByteView der) {
  if (der.size() > kMaxSize) return std::nullopt;
  const auto certificate = ReadOnlyElement(kDerSequence, der);
  if (!certificate) return std::nullopt;
  DerReader reader(certificate->content);
  const auto contents = reader.Take(kDerSequence);
  if (!contents || !TakeAlgorithm(&reader) || !TakeBits(&reader) || !reader.IsAtEnd()) {
    return std::nullopt;
  }
  CertificateFacts facts;
  if (!ReadContents(contents->content, &facts)) return std::nullopt;
  return facts;
}

}  // namespace kelvrin::encoding
