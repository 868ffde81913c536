// The file search entry point and the file-name, kernel-image and archiving
// utilities it is built on.
#pragma once

#include <fstream>
#include <string>

#include "vell/callbacks.h"
#include "vell/objects.h"
#include "vell/results.h"
#include "vell/search_env.h"
#include "vell/validation.h"

namespace VELL_2_13 {

// Locates one binary, symbol file or source file.
class IFileSearch : public IVellObject {
public:
  virtual ObjectPtr<IValidFile> findBinFile(const char *binName, IValidatorCallback *validatorCallback,
                                            const char *suggestedPath,
                                            unsigned long long searchStepsMask) = 0;
  virtual ObjectPtr<IValidFile> findSymFile(const char *symName, const char *binName, const char *checksum,
                                            IValidatorCallback *validatorCallback, const char *suggestedPath,
                                            ISymSrvDownloadProgressCallback *progressCallback,
                                            const char *symbolSearchHint) = 0;
  virtual ObjectPtr<IValidFile> findSrcFile(const char *srcName, const char *binName, const char *checksum,
                                            IValidatorCallback *validatorCallback,
                                            const char *suggestedPath) = 0;

  static VELL_API ObjectPtr<IFileSearch> create(const ObjectPtr<ISearchEnv> &env);
};

// File name of an uncompressed kernel image.
extern VELL_API const char *const VMLINUX;
// File name of a compressed kernel image.
extern VELL_API const char *const VMLINUZ;

// A Linux path written with either separator ("\usr\lib\x.so") gets forward
// slashes; true when the name was taken as such a path.
VELL_API bool fixLinuxName(std::string &s);

namespace utils {

VELL_API std::string getFileNameOnly(const char *p);
VELL_API std::string getFileNamePath(const char *p);
VELL_API std::string getFileNameBase(const char *p);
VELL_API std::string getFileNameExtension(const char *p);
VELL_API std::string changeFileNameExtension(const char *p, const char *ext);
VELL_API std::string addSubPart(const char *dir, const char *name);
VELL_API bool isAbsolutePath(const char *p);
VELL_API int compareCanonicalFileNames(const char *a, const char *b);
VELL_API std::string toUpper(const char *s);
VELL_API std::string getUserId();
VELL_API std::string getCanonicalName(const char *p, bool flag);
VELL_API bool fileExists(const char *p);
VELL_API bool isDirectory(const char *p);
VELL_API bool createDir(const char *p);
// Decompresses a whole gzip stream; true when the end of the stream was reached.
VELL_API bool uncompress(std::ifstream &in, std::ofstream &out);

VELL_API bool extractVmlinux(const char *compressedPath, const char *outputPath);
VELL_API int createUniqueTempDir(std::string &result);
VELL_API int archiveFile(const char *source, const char *targetDir, const char *subDir, std::string &result,
                         bool removeSource);

} // namespace utils

} // namespace VELL_2_13
