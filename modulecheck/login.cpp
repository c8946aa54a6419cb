#include "modulecheck/login.h"

#include <algorithm>

namespace kelvrin::modulecheck {
namespace {

bool HasSeveralCards(const Module& module) {
  return std::ranges::count_if(module.slots(), &SlotFacts::is_initialised) > 1;
}

}  // namespace

const Judgement& Login::Judge() {
  if (!judgement_) judgement_ = LogIn();
  return *judgement_;
}

Judgement Login::LogIn() const {
  CK_TOKEN_INFO token = {};
  CK_RV result = module_.p11()->C_GetTokenInfo(module_.slot(), &token);
  const auto refuse = [&](Judgement judgement) {
    channel_.Send({{"login", "refused"}});
    return judgement;
  };
  const auto withhold = [&](const std::string& why) {
    channel_.Send({{"warning", "not logged in: " + why}});
    return refuse(Unmet("not logged in: " + why));
  };
  if (module_.choice().choice == Choice::kFallback && module_.slots().size() > 1) {
    return withhold("no reader has the name that was given, and the PIN may be another card's");
  }
  if (module_.choice().choice == Choice::kRefused && HasSeveralCards(module_)) {
    return withhold(
        "several cards are there and no reader was named, so the PIN may be another card's; "
        "--reader names one");
  }
  if (result != CKR_OK) {
    return refuse(Unmet("C_GetTokenInfo", result,
                        "not logged in: the token does not say whether one try is left"));
  }
  if ((token.flags & CKF_USER_PIN_LOCKED) != 0) {
    return withhold("the token says that the PIN is locked");
  }
  if ((token.flags & CKF_USER_PIN_FINAL_TRY) != 0) {
    return withhold("the token says that one try of the PIN is left");
  }
  if ((token.flags & CKF_USER_PIN_COUNT_LOW) != 0) {
    channel_.Send({{"warning", "the token says that a wrong PIN was entered before"}});
  }
  // Told before it happens: who ends here has perhaps used up a try.
  channel_.Send({{"login", "tried"}});
  result =
      module_.p11()->C_Login(module_.session(), CKU_USER,
                             reinterpret_cast<CK_BYTE*>(pin_.bytes().data()), pin_.bytes().size());
  if (result != CKR_OK) return refuse(Unmet("C_Login", result));
  channel_.Send({{"login", "accepted"}});
  return Met();
}

}  // namespace kelvrin::modulecheck
