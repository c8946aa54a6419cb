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

TEST_F(TokenBringUpTest, TheNullHandleIsHandedToTheUnloading) {
  int other = 0;
  replaced_.init = [&other](const char *, void **module, CK_FUNCTION_LIST **, CK_SLOT_ID *,
                            CK_SESSION_HANDLE *, const char *) {
    *module = &other;
    return CK_RV{0x900};
  };
  std::vector<void *> unloaded;
  replaced_.before_unload = [&](void *module) {
    unloaded.push_back(module);
    EXPECT_THAT(Log(), ElementsAre(kInserted, kInitFailed));
  };
  MakeToken();
  EXPECT_THAT(unloaded, ElementsAre(nullptr));
  EXPECT_EQ(Log().back(), kUnloaded);
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
IMP fill_items = nullptr;        // the method's own
std::vector<NSUInteger> filled;  // how many items each call brought

id FillItems(id self, SEL command, NSArray *items) {
  filled.push_back([items count]);
  EXPECT_EQ(self, [filled_token keychainContents]);
  EXPECT_EQ([filled_token module], nullptr);
  EXPECT_EQ([filled_token p11], nullptr);
  EXPECT_EQ([filled_token slotID], 0u);
  EXPECT_EQ([filled_token session], 0u);
  EXPECT_EQ(initialized, 0);
  return reinterpret_cast<id (*)(id, SEL, NSArray *)>(fill_items)(self, command, items);
}

class TokenContentsTest : public TokenBringUpTest {
 protected:
  ~TokenContentsTest() override { [filled_token release]; }

  // Sets filled_token up while the filling of its contents is watched.
  void SetTokenUp() {
    filled.clear();
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
    EXPECT_EQ([filled_token p11], lindel().functions());
    EXPECT_EQ(initialized, 1);
  }
};

TEST_F(TokenContentsTest, TheItemsArePublishedBeforeTheValuesAreStored) {
  SetTokenUp();
  EXPECT_THAT(filled, ElementsAre(4u));
}

TEST_F(TokenContentsTest, AnEmptyCardFillsTheContentsToo) {
  lindel().Reset();
  AddEmptyCard(&card());
  SetTokenUp();
  EXPECT_THAT(filled, ElementsAre(0u));
}

}  // namespace
}  // namespace token_testing
