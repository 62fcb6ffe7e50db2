// convert: office documents to OpenDocument with LibreOffice headless
// ("soffice --headless --convert-to"). Word, RTF and plain Word-processing
// formats become .odt, spreadsheets .ods, presentations .odp.
// Thread-safe (each conversion runs its own soffice process with its own
// profile folder).
#pragma once

#include <string>

#include "nimbard/status.h"

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
// LibreOffice user profile. Waits for soffice, killing it when the task is
// cancelled (kErrTaskCancelled) or after a time-out (kErrTaskFailed).
// *output is the converted file's path.
Status RunSoffice(TaskContext& ctx, const std::string& soffice, const std::string& src,
                  const std::string& format, const std::string& out_dir, const std::string& profile,
                  std::string* output);

}  // namespace orvel::syncd
