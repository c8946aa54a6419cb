// The adapter's configuration: a small text file beside the library, with the library's own file
// name and the ending .conf (libX.dylib reads libX.conf). The environment is never read.
//
// Plain text in UTF-8, 64 KiB at most. One "key = value" a line; blanks round key and value are
// dropped; empty lines and lines that begin with # are skipped. Each key appears once at most, in
// any order:
//
//   module        the PKCS#11 module behind the adapter: an absolute path, or one relative to the
//                 folder of the configuration file. The only key that must be there.
//   reserved      string handed to the module's C_Initialize as pReserved
//   reader-name   text that the slot's own description must contain, 1 to 64 bytes
//   any-reader    no (the default), or yes: reader-name is only shown as the slot's description,
//                 whatever the slot's own is
//   token-label   show the slot whose token has this label, 1 to 32 bytes
//   token-serial  show the slot whose token has this serial number, 1 to 16 bytes
//   card-number   label (the default): the token's label begins with the card's number; serial: put
//                 the serial number in front of the label
//   rules-off     names of rules that do not apply, separated by commas (see rules.h)
//
// A slot is shown when all that is given fits, the first such slot with an initialised token.
#pragma once

#include <string>

#include "adapter/config/rules.h"

namespace kelvrin::adapter {

// A configuration that was read and checked. A text that is not configured is empty.
struct Config {
  std::string file;     // where it came from
  int module_line = 0;  // the line that names the module, for messages
  std::string module;   // absolute
  std::string reserved;
  std::string reader_name;
  bool any_reader = false;
  std::string token_label;
  std::string token_serial;
  bool serial_in_label = false;
  Rules rules;
};

// Reads and checks the configuration in `file`, an absolute path. Throws SetupError with
// CKR_GENERAL_ERROR when the file cannot be read, is no regular file, has more than 64 KiB, or does
// not fit the grammar above. Whether the module exists is not looked at here.
Config ReadConfig(const std::string& file);

// The configuration file that belongs to the library `library`.
std::string ConfigFileOf(const std::string& library);

}  // namespace kelvrin::adapter
