// Finding the keys under a CKA_ID.
#include <stdio.h>
#include <unistd.h>

#include "p11/lookup.h"
#include "tests/module/dirty_stack.h"
#include "tests/module/p11_fixture.h"

namespace {

using scripted::Bytes;
using scripted::CapturedOutput;
using scripted::Function;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr CK_OBJECT_HANDLE kUntouched = 4321;

// What differs between the two searches.
struct Kind {
  const char* name;
  CK_RV (*find)(CK_FUNCTION_LIST_PTR, CK_SESSION_HANDLE, const CK_BYTE*, CK_ULONG,
                CK_OBJECT_HANDLE*);
  CK_OBJECT_CLASS object_class;
  CK_OBJECT_CLASS other_class;
  const char* init_text;  // the call for the ID 0102
  const char* searching;  // standard output up to the call of C_FindObjectsInit, then up to
  const char* started;    // that of C_FindObjects, then the end
  const char* found;
  const char* init_failed;
  const char* find_failed;
  const char* none_found;
};

constexpr Kind kPublic = {
    "Public",
    get_pub_key,
    2,
    3,
    "C_FindObjectsInit(77, {0x0=0200000000000000, 0x102=0102})",
    "Öffentlichen Schlüssel suchen...\n",
    "",
    "Öffentlichen Schlüssel gefunden.\n",
    "error: PKCS11 function C_FindObjectsInit: CKO_PUBLIC_KEY failed: rv = CKR_DEVICE_ERROR (0x30)",
    "error: PKCS11 function C_FindObjects: CKO_PUBLIC_KEY failed: rv = CKR_DEVICE_ERROR (0x30)",
    "error: Keinen öffentlichen Schlüssel gefunden.",
};

constexpr Kind kPrivate = {
    "Private",
    get_priv_key,
    3,
    2,
    "C_FindObjectsInit(77, {0x0=0300000000000000, 0x102=0102})",
    "Privaten Schlüssel suchen...\n",
    "C_FindObjectsInit: CKO_PRIVATE_KEY erfolgreich.\n",
    "Privaten Schlüssel gefunden.\n",
    "error: PKCS11 function C_FindObjectsInit: CKO_PRIVATE_KEY failed: rv = CKR_DEVICE_ERROR "
    "(0x30)",
    "error: PKCS11 function C_FindObjects: CKO_PRIVATE_KEY failed: rv = CKR_DEVICE_ERROR (0x30)",
    "error: Keinen privaten Schlüssel gefunden.",
};

class KeySearchTest : public scripted::P11Test, public testing::WithParamInterface<Kind> {
 protected:
  CK_RV Find() {
    CapturedOutput out(1);
    CapturedOutput err(2);
    const CK_RV rv = kind_.find(p11_, kSession, id_.data(), id_.size(), &key_);
    stderr_ = err.Text();
    stdout_ = out.Text();
    return rv;
  }
  std::string Found(const char* count) const {
    return std::string(kind_.searching) + kind_.started + "ulMaxCount " + count + "\n" +
           kind_.found;
  }

  const Kind kind_ = GetParam();
  Bytes id_ = {1, 2};
  CK_OBJECT_HANDLE key_ = kUntouched;
  std::string stdout_;
  std::string stderr_;
};

INSTANTIATE_TEST_SUITE_P(Kinds, KeySearchTest, testing::Values(kPublic, kPrivate),
                         [](const auto& test) { return test.param.name; });

TEST_P(KeySearchTest, FailedStartEndsTheSearch) {
  module_.Return(Function::C_FindObjectsInit, CKR_DEVICE_ERROR);
  EXPECT_EQ(Find(), CKR_DEVICE_ERROR);
  EXPECT_THAT(module_.Texts(), ElementsAre(kind_.init_text));
  EXPECT_THAT(Log(), ElementsAre(kind_.init_failed));
  EXPECT_EQ(stdout_, kind_.searching);
  EXPECT_EQ(key_, kUntouched);
}

TEST_P(KeySearchTest, FailedFindEndsTheSearch) {
  module_.Return(Function::C_FindObjects, CKR_DEVICE_ERROR);
  EXPECT_EQ(Find(), CKR_DEVICE_ERROR);
  EXPECT_THAT(module_.Texts(), ElementsAre(kind_.init_text, "C_FindObjects(77, room[10], 10)"));
  EXPECT_THAT(Log(), ElementsAre(kind_.find_failed));
  EXPECT_EQ(stdout_, std::string(kind_.searching) + kind_.started);
  EXPECT_EQ(key_, kUntouched);
}

TEST_P(KeySearchTest, NoMatchIsASuccessThatSaysFound) {
  card_.AddObject(kind_.other_class, id_);
  card_.AddObject(kind_.object_class, {9});
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(key_, CK_INVALID_HANDLE);
  EXPECT_THAT(Log(), ElementsAre(kind_.none_found));
  EXPECT_EQ(stdout_, Found("0"));
  EXPECT_EQ(stderr_, "");
}

TEST_P(KeySearchTest, NotFoundLineNeedsTheErrorType) {
  const oslog::Disabled no_errors(OS_LOG_TYPE_ERROR);
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(stdout_, Found("0"));
}

TEST_P(KeySearchTest, FindsTheKeyAndLogsNothing) {
  card_.AddObject(kind_.other_class, id_);
  const CK_OBJECT_HANDLE key = card_.AddObject(kind_.object_class, id_).handle;
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(key_, key);
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(stdout_, Found("1"));
  EXPECT_EQ(stderr_, "");
}

TEST_P(KeySearchTest, PassesTheCallersIdOn) {
  EXPECT_EQ(Find(), CKR_OK);
  const auto id = module_.At(Function::C_FindObjectsInit).arguments[1].attributes[1];
  EXPECT_EQ(id.address, id_.data());
  EXPECT_EQ(id.length, 2u);
}

// What the module leaves untouched then reads as no handle.
TEST_P(KeySearchTest, HandsOutAClearedRoom) {
  std::vector<CK_OBJECT_HANDLE> handles;
  module_.Observe([&](const scripted::Call& call) {
    if (call.function != Function::C_FindObjects) return;
    const auto* room = static_cast<const CK_OBJECT_HANDLE*>(call.arguments[1].address);
    handles.assign(room, room + 10);
  });
  CapturedOutput out(1);
  scripted::DirtyStack();
  EXPECT_EQ(kind_.find(p11_, kSession, id_.data(), id_.size(), &key_), CKR_OK);
  EXPECT_THAT(handles, ElementsAreArray(std::vector<CK_OBJECT_HANDLE>(10, 0)));
}

TEST_P(KeySearchTest, TakesTheFirstOfSeveral) {
  const CK_OBJECT_HANDLE first = card_.AddObject(kind_.object_class, id_).handle;
  card_.AddObject(kind_.object_class, id_);
  card_.AddObject(kind_.object_class, id_);
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(key_, first);
  EXPECT_EQ(stdout_, Found("3"));
}

TEST_P(KeySearchTest, ReadsTenOfMoreMatchesInOneCall) {
  const CK_OBJECT_HANDLE first = card_.AddObject(kind_.object_class, id_).handle;
  for (int i = 0; i < 10; ++i) card_.AddObject(kind_.object_class, id_);
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(key_, first);
  EXPECT_EQ(stdout_, Found("10"));
  EXPECT_EQ(module_.Count(Function::C_FindObjects), 1u);
}

TEST_P(KeySearchTest, PrintsTheCountAsTheModuleReportsIt) {
  card_.AddObject(kind_.object_class, id_);
  card_.claimed_found = 0xFFFFFFFF;
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(stdout_, Found("-1"));
  card_.claimed_found = 0x100000007;
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(stdout_, Found("7"));
}

TEST_P(KeySearchTest, TheSearchIsNeverFinished) {
  card_.AddObject(kind_.object_class, id_);
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_THAT(module_.Names(), ElementsAre("C_FindObjectsInit", "C_FindObjects",
                                           "C_FindObjectsInit", "C_FindObjects"));
}

TEST_P(KeySearchTest, RefusedSecondSearchIsReportedAndNotCured) {
  card_.refuse_second_search = true;
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(Find(), CKR_OPERATION_ACTIVE);
  EXPECT_THAT(module_.Names(),
              ElementsAre("C_FindObjectsInit", "C_FindObjects", "C_FindObjectsInit"));
}

TEST_P(KeySearchTest, StandardOutputComesStepByStep) {
  std::vector<std::string> written;
  CapturedOutput out(1);
  module_.Observe([&](const scripted::Call&) {
    fflush(stdout);
    char text[256] = {};
    const ssize_t length = pread(1, text, sizeof text, 0);
    written.emplace_back(text, static_cast<size_t>(length));
  });
  EXPECT_EQ(kind_.find(p11_, kSession, id_.data(), id_.size(), &key_), CKR_OK);
  module_.Observe(nullptr);
  EXPECT_EQ(out.Text(), Found("0"));
  EXPECT_THAT(written, ElementsAre(kind_.searching, std::string(kind_.searching) + kind_.started));
}

TEST_P(KeySearchTest, FirstHandleIsHandedOutWhateverTheCountSays) {
  const CK_OBJECT_HANDLE key = card_.AddObject(kind_.object_class, id_).handle;
  card_.claimed_found = 0;
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(key_, key);
  EXPECT_THAT(Log(), ElementsAre(kind_.none_found));
  recorder_.clear();
  card_.claimed_found = 0x100000000;
  EXPECT_EQ(Find(), CKR_OK);
  EXPECT_EQ(stdout_, Found("0"));
  EXPECT_THAT(Log(), IsEmpty());
}

}  // namespace
