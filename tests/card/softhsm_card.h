// A smart card for tests: a SoftHSM token with keys and certificates in a temporary folder.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/temporary_folder.h"

namespace kelvrin {

// What one card carries. Without options: an RSA-2048 key (CKA_ID 01) and a P-256 key (CKA_ID 02),
// each with a certificate under the same CKA_ID.
struct CardOptions {
  std::string name = "card";        // folder of the card's public files
  std::string label = "4711 0815";  // token label, 1 to 32 bytes
  std::string pin = "123456";       // user PIN, at least 4 characters
  bool empty = false;               // no objects at all
  int extra_certificates = 0;       // more P-256 keys with certificates, CKA_IDs 0x10 and up
  bool lone_certificate = false;    // an authority's (CKA_ID 0x7f), without key
};

// Owns the folder, points SOFTHSM2_CONF at it, and removes both when destroyed. Use one at a time
// in a process; Add() puts further cards into it.
class SoftHsmCard {
 public:
  // Makes the folder and the first card. Throws std::runtime_error with the maker's own words when
  // that fails.
  explicit SoftHsmCard(const CardOptions& options = {});
  ~SoftHsmCard();
  SoftHsmCard(const SoftHsmCard&) = delete;
  SoftHsmCard& operator=(const SoftHsmCard&) = delete;

  // Puts another card beside the first, in a slot of its own; name and label must be new. Call it
  // while the module is not initialised. Throws std::runtime_error.
  void Add(const CardOptions& options);

  // The folder that holds everything, and SoftHSM's configuration in it.
  const std::filesystem::path& directory() const { return folder_.path(); }
  std::filesystem::path configuration() const { return folder_ / "softhsm2.conf"; }

  // The PIN and the label of the first card.
  const std::string& pin() const { return options_.pin; }
  const std::string& label() const { return options_.label; }

  // A public file of the first card (or the one named): pin, rsa.der, ec.der, rsa.pub.pem,
  // ec.pub.pem, extra-01.der and so on, lone.der.
  std::filesystem::path File(const std::string& file) const { return File(options_.name, file); }
  std::filesystem::path File(const std::string& card, const std::string& file) const {
    return directory() / card / file;
  }

  // The bytes of File(file), to compare a certificate with what a module says. Throws
  // std::runtime_error when there is no such file.
  std::vector<std::uint8_t> Read(const std::string& file) const;

  // Path of the SoftHSM module; throws std::runtime_error when it is not installed.
  static std::filesystem::path Module();

 private:
  CardOptions options_;
  TemporaryFolder folder_;
};

}  // namespace kelvrin
