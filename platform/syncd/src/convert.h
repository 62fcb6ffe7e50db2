// convert: office documents to OpenDocument with LibreOffice headless
// ("soffice --headless --convert-to"). Word, RTF and plain Word-processing
// formats become .odt, spreadsheets .ods, presentations .odp.
// Thread-safe (each conversion runs its own soffice process, in its own
// process group, with its own profile folder).
#pragma once

#include <string>

#include "orvelcommon/status.h"

namespace orvel::syncd {

class TaskContext;

// The OpenDocument extension for a file name ("odt", "ods", "odp"), or ""
// when the type is not convertible.
std::string OfficeTargetFormat(const std::string& name);

// The converter program: `program` itself when it is a path, else the
// first executable of that name in PATH; "" when LibreOffice is not
// installed.
std::string FindSoffice(const std::string& program);

// Converts src into out_dir as <stem>.<format>, with `profile` as the
// LibreOffice user profile, under the configured limits: a source over the
// decoder input size is refused (kErrTooLarge); soffice runs with the
// conversion memory limit and is killed, with every process it started,
// when the task is cancelled (kErrTaskCancelled) or after the conversion
// time limit (kErrTaskFailed, "timed out after N s"). The caller removes
// out_dir. *output is the converted file's path.
Status RunSoffice(TaskContext& ctx, const std::string& soffice, const std::string& src,
                  const std::string& format, const std::string& out_dir, const std::string& profile,
                  std::string* output);

}  // namespace orvel::syncd
