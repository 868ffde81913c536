// Example host: resolves a binary the way a profiler would, through a
// resolution context, and prints what was found and why candidates failed.
#include <cstdio>
#include <string>

#include <vell/vell.h>

using namespace VELL_2_13;

namespace {

// Reports every rejected candidate when nothing valid was found.
class ExplainNoFiles : public INoFilesFoundCallback {
public:
  ObjectPtr<IValidFile> noBinFilesFound(const char *binName, IValidator &, IInvalidFileIterator &rejected,
                                        IValidFileIterator &) override {
    std::printf("nothing valid found for %s\n", binName);
    rejected.reset();
    for (ObjectPtr<IInvalidFile> file = rejected.next(); file; file = rejected.next())
      std::printf("  rejected %s (%s)\n", file->name(), file->errorMessage());
    return ObjectPtr<IValidFile>();
  }
  ObjectPtr<IValidFile> noSymFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &, IValidFileIterator &) override {
    return ObjectPtr<IValidFile>();
  }
  ObjectPtr<IValidFile> noSrcFilesFound(const char *, const char *, const char *, IValidator &,
                                        IInvalidFileIterator &, IValidFileIterator &) override {
    return ObjectPtr<IValidFile>();
  }
};

} // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s BINARY [SEARCH_DIR]\n", argv[0]);
    return 2;
  }
  const char *clientId = "example";
  ObjectPtr<IResolutionContextMgr> manager = IResolutionContextMgr::create();
  ObjectPtr<IResolutionContext> user = manager->createUserWideContext();

  // Directories the user configured, searched before the system places.
  ObjectPtr<IEditableSearchDirContainer> dirs = IEditableSearchDirContainer::create();
  if (argc > 2)
    dirs->addDirectory(scAllFiles, argv[2], true, true);
  manager->registerSearchDirs(*user, dirs, "example dirs");

  // SafeCallback disconnects the library from the callback before its own
  // destructor runs, so a search on another thread never enters a half-destroyed object.
  SafeCallback<ExplainNoFiles> explain;
  manager->registerNoFilesFoundCallback(*user, clientId, &explain);

  ObjectPtr<IFileSearch> search = manager->createFileSearch(*user, clientId, ObjectPtr<IEnvironmentInfo>());
  ObjectPtr<IValidFile> found = search->findBinFile(argv[1], nullptr, nullptr, 0);
  if (!found)
    return 1;
  std::printf("%s\nconfidence %u, found in step %s\n", found->name(),
              static_cast<unsigned>(found->confidence()), dump(found->searchStep()).c_str());
  return 0;
}
