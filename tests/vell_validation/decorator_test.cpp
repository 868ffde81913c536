// The checks every candidate passes before the host's validator callback.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "support/temp_dir.h"
#include "vell/validation.h"
#include "vell_validation/catalog_scope.h"
#include "vell_validation/messages.h"
#include "vell_validation/validation_fakes.h"
#include "vell_validation/validator.h"
#include "vell_validation/validator_callback_decorator.h"

using namespace VELL_2_13;
using vell_test::RecordingCallback;

namespace {

// A host replacement of a message kind.
template <class Interface> class FixedMessage : public RefCountImpl<Interface> {
public:
  explicit FixedMessage(std::string prefix) : m_prefix(std::move(prefix)) {}
  bool fillMessage(IMsgContainer &container, const char *fileName) override {
    container.put((m_prefix + fileName).c_str());
    return true;
  }

private:
  std::string m_prefix;
};

// A message object that claims success but writes nothing.
class SilentMessage : public RefCountImpl<IFileDoesNotExistMessage> {
public:
  bool fillMessage(IMsgContainer &, const char *) override { return true; }
};

class DecoratorTest : public ::testing::Test {
protected:
  void SetUp() override { platform::setCatalogDirectory(""); }
  void TearDown() override { initializeValidationMessages(IMessageMgr::create()); }
  vell_test::TempDir dir;
};

TEST_F(DecoratorTest, CreateWrapsTheUserCallback) {
  std::string file = dir.write("a.so");
  RecordingCallback callback(vvReject, 1, "mine");
  ObjectPtr<IValidatorCallbackDecorator> decorator = IValidatorCallbackDecorator::create(&callback);
  ASSERT_TRUE(decorator);
  Validator::ErrorInfoContainer errorInfo;
  EXPECT_EQ(vvReject, decorator->validate(file.c_str(), errorInfo));
  EXPECT_EQ(1, callback.calls.load());
  EXPECT_EQ(file, callback.lastName);
  // The container is passed through to the user callback.
  EXPECT_EQ(severity_t(1), errorInfo.severity());
  EXPECT_EQ("mine", errorInfo.message());
}

TEST_F(DecoratorTest, WithoutUserCallbackAPresentReadableFileHasNoDecision) {
  std::string file = dir.write("a.so");
  ObjectPtr<IValidatorCallbackDecorator> decorator = IValidatorCallbackDecorator::create(nullptr);
  Validator::ErrorInfoContainer errorInfo;
  EXPECT_EQ(vvNoDecision, decorator->validate(file.c_str(), errorInfo));
  EXPECT_EQ(severity_t(2), errorInfo.severity());
  EXPECT_EQ("", errorInfo.message());
}

TEST_F(DecoratorTest, UserVerdictIsReturnedAsItIs) {
  std::string file = dir.write("a.so");
  for (int verdict : {0, 1, 2, 9}) {
    RecordingCallback callback(verdict);
    ValidatorCallbackDecorator decorator(&callback);
    Validator::ErrorInfoContainer errorInfo;
    EXPECT_EQ(verdict, decorator.validate(file.c_str(), errorInfo));
  }
}

TEST_F(DecoratorTest, MissingFileSetsSeverityZeroAndTheFallbackId) {
  RecordingCallback callback(vvAccept);
  ValidatorCallbackDecorator decorator(&callback);
  Validator::ErrorInfoContainer errorInfo;
  EXPECT_EQ(vvReject, decorator.validate(dir.sub("nothing").c_str(), errorInfo));
  EXPECT_EQ(severity_t(0), errorInfo.severity());
  EXPECT_EQ("%FileDoesNotExist", errorInfo.message());
  EXPECT_EQ(0, callback.calls.load());
}

TEST_F(DecoratorTest, DirectoryGivesFileDoesNotExistNotFileIsDirectory) {
  ValidatorCallbackDecorator decorator(nullptr);
  Validator::ErrorInfoContainer errorInfo;
  EXPECT_EQ(vvReject, decorator.validate(dir.path().c_str(), errorInfo));
  EXPECT_EQ(severity_t(0), errorInfo.severity());
  EXPECT_EQ("%FileDoesNotExist", errorInfo.message());
}

TEST_F(DecoratorTest, FileBehindAnUnsearchableDirectoryIsReportedAsNotExisting) {
  std::string file = dir.write("locked/a.so");
  vell_test::openForOthers(dir.path());
  ASSERT_EQ(0, ::chmod(dir.sub("locked").c_str(), 0));
  ValidatorCallbackDecorator decorator(nullptr);
  Validator::ErrorInfoContainer errorInfo;
  vell_test::AsUnprivilegedUser nobody;
  EXPECT_EQ(vvReject, decorator.validate(file.c_str(), errorInfo));
  EXPECT_EQ("%FileDoesNotExist", errorInfo.message());
}

TEST_F(DecoratorTest, UnreadableFileGivesCantOpenFile) {
  std::string file = dir.write("a.so");
  ASSERT_EQ(0, ::chmod(file.c_str(), 0200));
  vell_test::openForOthers(dir.path());
  RecordingCallback callback(vvAccept);
  ValidatorCallbackDecorator decorator(&callback);
  Validator::ErrorInfoContainer errorInfo;
  vell_test::AsUnprivilegedUser nobody;
  EXPECT_EQ(vvReject, decorator.validate(file.c_str(), errorInfo));
  EXPECT_EQ(severity_t(0), errorInfo.severity());
  EXPECT_EQ("%CantOpenFile", errorInfo.message());
  EXPECT_EQ(0, callback.calls.load());
}

TEST_F(DecoratorTest, CatalogTextsForTheFailedChecks) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  std::string file = dir.write("a.so");
  ASSERT_EQ(0, ::chmod(file.c_str(), 0));
  vell_test::openForOthers(dir.path());
  ValidatorCallbackDecorator decorator(nullptr);
  Validator::ErrorInfoContainer missing;
  decorator.validate(dir.sub("gone").c_str(), missing);
  EXPECT_EQ("The file " + dir.sub("gone") + " does not exist or is not a regular file.", missing.message());
  vell_test::AsUnprivilegedUser nobody;
  Validator::ErrorInfoContainer unreadable;
  decorator.validate(file.c_str(), unreadable);
  EXPECT_EQ("The file " + file + " cannot be opened for reading.", unreadable.message());
}

TEST_F(DecoratorTest, MessageGettersFallBackToTheirIds) {
  ValidatorCallbackDecorator decorator(nullptr);
  EXPECT_EQ("%FileDoesNotExist", decorator.getFileDoesntExistErrMessage("/a"));
  EXPECT_EQ("%FileIsNotRegular", decorator.getFileIsNotRegularErrMessage("/a"));
  EXPECT_EQ("%CantOpenFile", decorator.getFileIsNotReadableErrMessage("/a"));
  EXPECT_EQ("%FileIsDirectory", decorator.getFileIsDirErrMessage());
}

TEST_F(DecoratorTest, MessageGettersUseTheCatalog) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir(), "de");
  ValidatorCallbackDecorator decorator(nullptr);
  EXPECT_EQ("Die Datei /a existiert nicht oder ist keine reguläre Datei.",
            decorator.getFileDoesntExistErrMessage("/a"));
  EXPECT_EQ("Die Datei /a ist keine reguläre Datei.", decorator.getFileIsNotRegularErrMessage("/a"));
  EXPECT_EQ("Die Datei /a kann nicht zum Lesen geöffnet werden.",
            decorator.getFileIsNotReadableErrMessage("/a"));
  EXPECT_EQ("Der Pfad ist ein Verzeichnis und keine Datei.", decorator.getFileIsDirErrMessage());
}

TEST_F(DecoratorTest, MessageObjectsAreFetchedAtConstructionExceptNotRegular) {
  ObjectPtr<IMessageMgr> mgr = IMessageMgr::create();
  ValidatorCallbackDecorator decorator(nullptr);
  mgr->setFileDoesNotExistMessage(new FixedMessage<IFileDoesNotExistMessage>("gone: "));
  mgr->setFileIsNotRegularMessage(new FixedMessage<IFileIsNotRegularMessage>("odd: "));
  // Cached at construction: the replacement is not seen.
  EXPECT_EQ("%FileDoesNotExist", decorator.getFileDoesntExistErrMessage("/a"));
  // Asked of the manager at each use.
  EXPECT_EQ("odd: /a", decorator.getFileIsNotRegularErrMessage("/a"));
  // A decorator built afterwards uses the replacement.
  ValidatorCallbackDecorator later(nullptr);
  EXPECT_EQ("gone: /a", later.getFileDoesntExistErrMessage("/a"));
}

TEST_F(DecoratorTest, ClearedMessageKindFallsBackEvenWithACatalog) {
  vell_test::CatalogScope scope(vell_test::shippedCatalogDir());
  IMessageMgr::create()->setFileDoesNotExistMessage(ObjectPtr<IFileDoesNotExistMessage>());
  ValidatorCallbackDecorator decorator(nullptr);
  Validator::ErrorInfoContainer errorInfo;
  decorator.validate(dir.sub("gone").c_str(), errorInfo);
  EXPECT_EQ("%FileDoesNotExist", errorInfo.message());
}

TEST_F(DecoratorTest, MessageThatWritesNothingFallsBack) {
  IMessageMgr::create()->setFileDoesNotExistMessage(new SilentMessage);
  ValidatorCallbackDecorator decorator(nullptr);
  EXPECT_EQ("%FileDoesNotExist", decorator.getFileDoesntExistErrMessage("/a"));
}

} // namespace
