// Bringing the module up, slots and the token.
#include <algorithm>

#include "p11/bringup.h"
#include "modulecheck/probes.h"
#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

std::string Quoted(std::string_view text) { return "\"" + Printable(text) + "\""; }

}  // namespace

Judgement ProbeInitialise(Module& module) {
  if (module.is_initialised()) return Met();
  return Unmet("C_Initialize", module.bring_up_result());
}

Judgement ProbeInitialiseAgain(Module& module) {
  const CK_RV result = module.p11()->C_Initialize(nullptr);
  if (result == CKR_OK || result == CKR_CRYPTOKI_ALREADY_INITIALIZED) return Met();
  return Unmet("C_Initialize", result);
}

Judgement ProbeReaderName(Module& module) {
  const std::string name = Quoted(module.reader_name());
  switch (module.choice().choice) {
    case Choice::kNoSlot:
      return Unmet("the module has no slot");
    case Choice::kOnlySlot:
      return Met("there is one slot, so no reader name is needed");
    case Choice::kMatch:
      return Met("the slot's description contains " + name);
    case Choice::kFallback:
      return Unmet("no slot's description contains " + name +
                   ": the extension takes the last slot without a word");
    case Choice::kRefused:
      break;
  }
  return Unmet("there are " + Counted(module.slots().size(), "slot") +
               " and no reader name: the extension refuses to choose");
}

Judgement ProbeDescription(Module& module) {
  for (const SlotFacts& slot : module.slots()) {
    if (slot.info_result != CKR_OK) return Unmet("C_GetSlotInfo", slot.info_result);
    const std::size_t end = slot.description.find('\0');
    const bool has_text = slot.description.find_first_not_of(' ') < end;
    if (!has_text) return Unmet("a slot has no description that a reader name could be part of");
    // What lies behind a NUL is not searched.
    if (!module.reader_name().empty() && end != std::string::npos &&
        slot.description.find(module.reader_name(), end) != std::string::npos) {
      return Unmet("the reader name lies behind a NUL byte in the slot's description");
    }
  }
  return Met();
}

Judgement ProbeToken(Module& module) {
  const auto& slots = module.slots();
  const Choice choice = module.choice().choice;
  if (std::none_of(slots.begin(), slots.end(),
                   [](const SlotFacts& slot) { return slot.is_initialised(); })) {
    return Unmet("no slot has an initialised token");
  }
  if (module.open_result() != CKR_OK) return Unmet("C_OpenSession", module.open_result());
  if (choice == Choice::kRefused) return Unmet("the extension opens no session: it picks no slot");
  if (!slots[module.choice().index].is_initialised()) {
    return Unmet("the slot that the extension picks has no initialised token");
  }
  return Met();
}

Judgement ProbeCardNumber(Module& module) {
  char number[kCardNumberSize] = {};
  const CK_RV result = get_card_no(module.p11(), module.slot(), number);
  if (result != CKR_OK) return Unmet("C_GetTokenInfo", result);
  const std::string_view text = number;
  if (text.empty()) return Unmet("the token's label begins with a blank, or is empty");
  const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (!std::all_of(text.begin(), text.end(), is_ascii)) {
    return Unmet("the first word of the token's label is not ASCII");
  }
  return Met("it is " + Quoted(text));
}

Judgement ProbeFinalise(Module& module) {
  const CK_RV result = module.Finalise();
  return result == CKR_OK ? Met() : Unmet("C_Finalize", result);
}

}  // namespace kelvrin::modulecheck
