// A set-up whose bring-up is replaced, and the order in which a success stores things.
#include "token/testing/replaced_p11.h"
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

const char kInserted[] = "default: ";  // the driver's line

class TokenBringUpTest : public testing::Test, protected TokenFixture {
 protected:
  static void ExpectNothingStored(Token *token) {
    EXPECT_EQ([token module], nullptr);
    EXPECT_EQ([token p11], nullptr);
    EXPECT_EQ([token slotID], 0u);
    EXPECT_EQ([token session], 0u);
    EXPECT_EQ(initialized, 0);
  }

  ReplacedP11 replaced_;
};

TEST_F(TokenBringUpTest, AFunctionListThatAFailureLeftIsFinalisedAndNothingIsUnloaded) {
  replaced_.init = [this](const char *, void **, CK_FUNCTION_LIST **p11, CK_SLOT_ID *,
                          CK_SESSION_HANDLE *, const char *) {
    *p11 = vumo().functions();
    return CK_RV{0x900};
  };
  Token *token = MakeToken();
  EXPECT_THAT(Log(), ElementsAre(kInserted, kInitFailed, kFinalized));
  EXPECT_THAT(vumo().Texts(), ElementsAre("C_Finalize(NULL)"));
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  ExpectNothingStored(token);
}

TEST_F(TokenBringUpTest, AModuleThatAFailureLeftStaysLoadedThoughTheLogSaysUnloaded) {
  int other = 0;
  replaced_.init = [&other](const char *, void **module, CK_FUNCTION_LIST **, CK_SLOT_ID *,
                            CK_SESSION_HANDLE *, const char *) {
    *module = &other;
    return CK_RV{0x900};
  };
  Token *token = MakeToken();
  EXPECT_THAT(Log(), ElementsAre(kInserted, kInitFailed, kUnloaded));
  EXPECT_THAT(lindel().Names(), IsEmpty());
  EXPECT_THAT(vumo().Names(), IsEmpty());
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  ExpectNothingStored(token);
}

TEST_F(TokenBringUpTest, AlreadyInitialisedAsTheResultIsASuccessToo) {
  size_t inits = 0;
  replaced_.init = [&](const char *path, void **module, CK_FUNCTION_LIST **p11, CK_SLOT_ID *slot,
                       CK_SESSION_HANDLE *session, const char *reader_name) {
    ++inits;
    EXPECT_EQ(path, bundle().ModulePath(kLindelModule));
    EXPECT_STREQ(reader_name, kReaderName);
    EXPECT_EQ(*module, nullptr);
    EXPECT_EQ(*p11, nullptr);
    EXPECT_EQ(*slot, 0u);
    EXPECT_EQ(*session, 0u);
    *p11 = vumo().functions();
    *slot = kSlot;
    *session = 22;
    return CK_RV{CKR_CRYPTOKI_ALREADY_INITIALIZED};
  };
  Token *token = MakeToken();
  EXPECT_EQ(inits, 1u);
  EXPECT_EQ([token module], nullptr);
  EXPECT_EQ([token p11], vumo().functions());
  EXPECT_EQ([token slotID], kSlot);
  EXPECT_EQ([token session], 22u);
  EXPECT_EQ(initialized, 1);
  EXPECT_EQ([[[token keychainContents] items] count], 4u);
  EXPECT_THAT(Log(), Not(Contains(kInitFailed)));
  EXPECT_EQ(vumo().Count(scripted::Function::C_Finalize), 0u);
}

// --- The order of a success ---

Token *filled_token = nil;
IMP fill_items = nullptr;  // the method's own
size_t fills = 0;

id FillItems(id self, SEL command, NSArray *items) {
  ++fills;
  EXPECT_EQ(self, [filled_token keychainContents]);
  EXPECT_EQ([items count], 4u);
  EXPECT_EQ([filled_token module], nullptr);
  EXPECT_EQ([filled_token p11], nullptr);
  EXPECT_EQ([filled_token slotID], 0u);
  EXPECT_EQ([filled_token session], 0u);
  EXPECT_EQ(initialized, 0);
  return reinterpret_cast<id (*)(id, SEL, NSArray *)>(fill_items)(self, command, items);
}

TEST_F(TokenBringUpTest, TheItemsArePublishedBeforeTheValuesAreStored) {
  fills = 0;
  {
    const ReplacedMethod fill([TKTokenKeychainContents class], @selector(fillWithItems:),
                              reinterpret_cast<IMP>(FillItems));
    fill_items = fill.original();
    filled_token = [Token alloc];
    StandardOutputOf([&] {
      NSError *error = nil;
      EXPECT_EQ([filled_token initWithSmartCard:smart_card()
                                            AID:AID()
                                    tokenDriver:(TKSmartCardTokenDriver *)driver()
                                          error:&error],
                filled_token);
    });
  }
  EXPECT_EQ(fills, 1u);
  EXPECT_EQ([filled_token p11], lindel().functions());
  EXPECT_EQ(initialized, 1);
  [filled_token release];
}

}  // namespace
}  // namespace token_testing
