// zip: the platform archiver installed as "/usr/bin/zip" under ZEMO_ROOT.
// Writes a store-only ZIP stream of a folder to stdout for the web module's
// folder downloads (args.h lists the accepted arguments). Exit status: 0 on
// success, 16 for arguments it does not accept, 18 when some entries could
// not be read (they are left out), 15 when the output failed.
// Single-threaded.
#include <clocale>
#include <fcntl.h>
#include <signal.h>

#include <cstdio>
#include <string>
#include <vector>

#include "args.h"
#include "zip_stream.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  orvel::archiver::Options opts;
  std::string error;
  if (!orvel::archiver::ParseArgs(args, &opts, &error)) {
    fprintf(stderr,
            "zip error: %s\n"
            "usage: zip -q -0 -r [-i .] -yf (-cp CODEPAGE | -UN=UTF8) - FOLDER\n",
            error.c_str());
    return 16;
  }
  // Names on disk are UTF-8; the code page conversion starts from there.
  if (!setlocale(LC_CTYPE, "C.UTF-8")) setlocale(LC_CTYPE, "");
  signal(SIGPIPE, SIG_IGN);  // a reader that goes away is a write error
  // A pipe of one write block (zip_stream.h): each 1 MiB write goes in at
  // once instead of in sixteen 64 KiB turns of the reader. Best effort: the
  // output may be a file, or the pipe limit lower.
  fcntl(1, F_SETPIPE_SZ, static_cast<int>(orvel::archiver::ZipStream::kBlock));
  orvel::archiver::ZipStream zip(1, opts.utf8, opts.code_page);
  bool ok = zip.Open(&error);
  if (ok && !opts.include_dot_only) ok = zip.AddTree(opts.folder, &error);
  if (ok) ok = zip.Close(&error);
  if (!ok) {
    fprintf(stderr, "zip error: %s\n", error.c_str());
    return 15;
  }
  return zip.result().skipped > 0 ? 18 : 0;
}
