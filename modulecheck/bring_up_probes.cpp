// Bringing the module up, slots and the token.
#include <algorithm>

#include "modulecheck/probes.h"
#include "modulecheck/text.h"
#include "p11/bringup.h"

namespace kelvrin::modulecheck {

Judgement ProbeInitialise(ProbeContext& context) {
  if (context.module.is_initialised()) return Met();
  return Unmet("C_Initialize", context.module.bring_up_result());
}

Judgement ProbeInitialiseAgain(ProbeContext& context) {
  const CK_RV result = context.module.p11()->C_Initialize(nullptr);
  if (result == CKR_OK || result == CKR_CRYPTOKI_ALREADY_INITIALIZED) return Met();
  return Unmet("C_Initialize", result);
}

Judgement ProbeReaderName(ProbeContext& context) {
  const Module& module = context.module;
  const std::string name = Quoted(module.reader_name());
  switch (module.choice().choice) {
    case Choice::kNoSlot:
      return Unknown("the module shows no slot");
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

Judgement ProbeDescription(ProbeContext& context) {
  const Module& module = context.module;
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

Judgement ProbeToken(ProbeContext& context) {
  const Module& module = context.module;
  if (!module.WhyNoCard().empty()) return Unknown(module.WhyNoCard());
  if (module.open_result() != CKR_OK) return Unmet("C_OpenSession", module.open_result());
  if (module.choice().choice == Choice::kRefused) {
    return Unmet("the extension opens no session: it picks no slot");
  }
  if (module.judged() == 0) return Unmet("no session can be opened");
  if (!module.slots()[module.choice().index].has_card()) {
    return Unmet("the slot that the extension picks has no initialised token");
  }
  return Met();
}

// What several cards share, such as "piv", is no number of one.
Judgement ProbeCardNumber(ProbeContext& context) {
  char number[kCardNumberSize] = {};
  const CK_RV result = get_card_no(context.module.p11(), context.module.slot().id, number);
  if (result != CKR_OK) return Unmet("C_GetTokenInfo", result);
  const std::string_view text = number;
  if (text.empty()) return Unmet("the token's label begins with a blank, or is empty");
  const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (!std::ranges::all_of(text, is_ascii)) {
    return Unmet("the first word of the token's label is not ASCII");
  }
  if (text.find_first_of("0123456789") == std::string_view::npos) {
    return Unmet("the first word of the token's label, " + Quoted(text) +
                 ", has no digit: cards that share it could not be told apart");
  }
  return Met("it is " + Quoted(text));
}

Judgement ProbeFinalise(ProbeContext& context) {
  const CK_RV result = context.module.Finalise();
  return result == CKR_OK ? Met() : Unmet("C_Finalize", result);
}

}  // namespace kelvrin::modulecheck
