// What the modules on test make their cards with.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace matrix {

// Runs a program; throws std::runtime_error with its own words when it fails.
void RunTool(const std::vector<std::string>& arguments);

// Makes a key and a certificate that it signs for itself: NAME.key and NAME.pem, and the
// certificate once more as NAME.der.
//   key    what follows "openssl req -newkey".
//   usage  the certificate's key usage.
void Certify(const std::filesystem::path& folder, const std::string& name,
             const std::vector<std::string>& key, const std::string& usage);

// Kinds of keys for Certify.
inline const std::vector<std::string> kRsa2048 = {"rsa:2048"};
inline const std::vector<std::string> kP256 = {"ec", "-pkeyopt", "ec_paramgen_curve:prime256v1"};

// The certificate of an authority whose key is elsewhere: authority.der and the files beside it.
inline void CertifyAuthority(const std::filesystem::path& folder) {
  Certify(folder, "authority", kP256, "keyCertSign,cRLSign");
}

}  // namespace matrix
