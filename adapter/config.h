// The adapter's configuration: a small text file beside the library, with the library's own file
// name and the ending .conf (libX.dylib reads libX.conf). Copies under two names therefore read two
// configurations. The environment is never read.
//
// Plain text in UTF-8, 64 KiB at most. One "key = value" a line; blanks round key and value are
// dropped; empty lines and lines that begin with # are skipped. Each key appears once at most, in
// any order:
//
//   module        the PKCS#11 module behind the adapter: an absolute path, or one relative to the
//                 folder of the configuration file. The only key that must be there.
//   reserved      string handed to the module's C_Initialize as pReserved
//   reader-name   text shown as the slot's description, 1 to 64 bytes
//   token-label   show the slot whose token has this label, 1 to 32 bytes
//   token-serial  show the slot whose token has this serial number, 1 to 16 bytes
//   slot-reader   show the slot whose own description contains this text, 1 to 64 bytes
//   card-number   label (the default): the token's label begins with the card's number; serial: put
//                 the serial number in front of the label
//   profile       extension (the default): every rule applies; standard: only those that no caller
//                 that keeps to the standard can notice
//   rules-off     names of rules that do not apply, separated by commas (see rules.h)
//
// Of the keys that choose a slot all that are given must match; with none any slot with an
// initialised token does. Of several that do, the first whose own description contains reader-name
// is shown, or else the first. Without the rule one-slot the keys that choose, name or number a
// slot change nothing.
#ifndef KELVRIN_ADAPTER_CONFIG_H_
#define KELVRIN_ADAPTER_CONFIG_H_

#include <string>

#include "adapter/rules.h"

namespace kelvrin::adapter {

// A configuration that was read and checked. A text that is not configured is empty.
struct Config {
  std::string file;     // where it came from
  int module_line = 0;  // the line that names the module, for messages
  std::string module;   // absolute
  std::string reserved;
  std::string reader_name;
  std::string token_label;
  std::string token_serial;
  std::string slot_reader;
  bool serial_in_label = false;
  Rules rules = Rules::Extension();
};

// Reads and checks the configuration in `file`, an absolute path. Throws SetupError with
// CKR_GENERAL_ERROR when the file cannot be read, has more than 64 KiB, or does not fit the
// grammar above. Whether the module exists is not looked at here.
Config ReadConfig(const std::string& file);

// The configuration file that belongs to the library `library`.
std::string ConfigFileOf(const std::string& library);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_CONFIG_H_
