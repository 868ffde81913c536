// Kernel images and modules as Linux distributions ship them: extraction of
// every compression the kernel's build supports, decompression of compressed
// modules, and a file search that knows compressed modules, module names as
// the kernel reports them, and a copy of the recorded system's files.
#pragma once

#include <cstdint>
#include <string>

#include "vell/export.h"
#include "vell/file_search.h"

namespace VELL_2_13 {

// --- Extraction -----------------------------------------------------------------------

enum kernel_compression_t : uint32_t {
  kcNone = 0,
  kcGzip = 1,
  kcXz = 2,
  kcLzma = 3,
  kcBzip2 = 4,
  kcLz4 = 5, // the lz4 legacy frame, as the kernel's build writes it
  kcZstd = 6,
  kcLzo = 7, // the lzop container
};

// "gzip", "xz", "lzma", "bzip2", "lz4", "zstd", "lzo"; "none" for kcNone.
VELL_API const char *kernelCompressionName(kernel_compression_t format);

enum extraction_error_t : uint32_t {
  eeNone = 0,
  eeUnreadable = 1,       // the input cannot be opened or mapped
  eeNoStream = 2,         // no stream of a known compression decodes there
  eeNotElf = 3,           // a stream decoded, but not to an ELF file
  eeTruncated = 4,        // a stream ends with the input
  eeOutputCap = 5,        // the output would exceed the cap
  eeOutputUnwritable = 6, // the output cannot be written
};

// Well above any real kernel image or module.
constexpr unsigned long long DEFAULT_MAX_EXTRACTED_SIZE = 4ULL << 30;

// What an extraction found; format and offset name the stream that was used.
struct KernelExtraction {
  kernel_compression_t format = kcNone;
  unsigned long long offset = 0;
  unsigned long long size = 0;
  extraction_error_t error = eeNone;
};

// Extracts the uncompressed kernel image from a compressed kernel file (a
// vmlinuz, a bzImage or a bare compressed stream). The gzip streams with a
// plain header are tried first, as utils::extractVmlinux does and with its
// log lines; then every other stream of a known compression, in the order of
// their positions in the file. Only an output that is an ELF file counts; an
// output beyond maxOutput ends the extraction with eeOutputCap.
// The image is written to a temporary file in the directory of outputPath and
// renamed to outputPath when complete: a reader never sees a partial image,
// and a failure leaves no file behind. Temporary files of extractions killed
// before they finished are removed by the next extraction into the same
// directory (removeStaleExtractionFiles).
VELL_API bool extractKernelImage(const char *compressedPath, const char *outputPath,
                                 unsigned long long maxOutput = DEFAULT_MAX_EXTRACTED_SIZE,
                                 KernelExtraction *result = nullptr);

// Decompresses a file that is one compressed stream from its first byte (a
// module such as xfs.ko.xz, .ko.zst or .ko.gz) into outputPath, in the same
// atomic way; the output must be an ELF file.
VELL_API bool decompressElfFile(const char *compressedPath, const char *outputPath,
                                unsigned long long maxOutput = DEFAULT_MAX_EXTRACTED_SIZE,
                                KernelExtraction *result = nullptr);

// Removes the temporary files that extractions into directory left behind
// when their process died (its process no longer exists, or the file is more
// than a day old). Returns how many were removed.
VELL_API unsigned removeStaleExtractionFiles(const char *directory);

// --- Kernel-aware file search ---------------------------------------------------------------

// What a kernel-aware file search adds to the search of IFileSearch::create.
// A search created by IFileSearch::create behaves as before in every respect.
struct KernelSearchOptions {
  // Compressed kernel images are extracted in every compression (not only
  // gzip), and only to an ELF image.
  bool allCompressions = true;
  // Cap on an extracted kernel image or decompressed module.
  unsigned long long maxExtractedSize = DEFAULT_MAX_EXTRACTED_SIZE;
  // A module is also looked for as .ko.xz, .ko.zst and .ko.gz, and its name
  // matches with '-' and '_' taken as the same character (the kernel reports
  // vport-gre.ko as vport_gre).
  // This holds in the host's search directories too, when the name searched
  // is a module's (a bare name such as vport_gre, or a file name or path
  // ending in .ko, .ko.xz, .ko.zst or .ko.gz). In every directory those
  // steps look in (each tail look-up under a directory and each directory of
  // a recursive walk) the candidate of the plain search comes first; right
  // after it come the module's files that exist in that directory:
  //   1. those with the name as searched, in the order .ko, .ko.xz, .ko.zst,
  //      .ko.gz (vport_gre.ko, vport_gre.ko.xz, ...);
  //   2. those whose name differs only in '-' and '_', the spellings in byte
  //      order, each in the same order of suffixes (vport-gre.ko, ...).
  // The candidate itself is not offered twice. A recursive walk helped by
  // read-ahead threads offers the same candidates in the same order, one
  // answered by a directory index those of them that exist, in the same
  // order (as for any name); a module name with more than 8 '-' or '_'
  // has too many spellings to look up in an index, and its recursive search
  // directories are then walked on the disk. Guest files ("[guest]") get no
  // further candidates. A recursive walk finds the module's files in the
  // listing it makes of each directory anyway; a tail look-up, a directory
  // that cannot be listed, and a directory an index says holds one are asked
  // for each possible name when there are at most 16 (a name with at most
  // two '-' or '_'), else listed once.
  bool compressedModules = true;
  // Which file the host gets for a compressed module, wherever it was
  // found: false, the compressed file as found (its name ends in .xz, .zst
  // or .gz); true, an ELF copy decompressed into <cache root>/module_cache/
  // <md5 of the compressed file>/<name>.ko, made once and reused like an
  // extracted kernel image.
  bool decompressModules = false;
  // A directory that holds a copy of the recorded system's files (its boot/,
  // lib/modules/ and usr/lib/debug/). When set, the kernel image and modules
  // are looked for there first, with the target's kernel release:
  // <root>/boot/vmlinux-R, <root>/usr/lib/debug/boot/vmlinux-R,
  // <root>/usr/lib/debug/lib/modules/R/vmlinux, <root>/boot/vmlinuz-R, and
  // <root>/lib/modules/R/ for modules, before the host's own places.
  std::string sysroot;
  // The target's kernel release; empty takes the one of the search
  // environment's environment info.
  std::string kernelRelease;
};

// A file search over env with the kernel handling of options. Its symbol and
// source searches are those of IFileSearch::create.
VELL_API ObjectPtr<IFileSearch> createKernelAwareFileSearch(const ObjectPtr<ISearchEnv> &env,
                                                            const KernelSearchOptions &options);

// The kernel release in a module path of the form .../lib/modules/<release>/...;
// empty when the path has no such part.
VELL_API std::string moduleReleaseOf(const char *path);

} // namespace VELL_2_13
