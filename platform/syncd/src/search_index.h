// search_index: keeps the full-text index current. Rows whose name, content
// or liveness changed wait in the index queue (filled by database triggers);
// DrainSearchQueue indexes them (names, and the text of text and PDF files, read
// here) before a search runs. Also turns a user's keyword into an FTS5
// match expression.
//
// Threading: DrainSearchQueue serialises itself (one drainer at a time per
// process); the rest are pure functions.
#pragma once

#include <string>

#include "daemon.h"
#include "db/store.h"
#include "decode.h"

namespace orvel::syncd {

// Indexes every queued row. Text extraction happens outside the database's
// write lock; each batch commits on its own.
Status DrainSearchQueue(Daemon& d, Store* store);

// Whether the file's text is indexed: text types by extension or content
// type, and PDF documents; at most 1 MiB of text. Never a link item.
bool HasIndexableText(const Node& node);

// The indexed text of a file whose HasIndexableText is true, read from the
// open file fd (PDF text through pdf_text.h, by `decoder`). Empty on any read
// error.
std::string ExtractIndexableText(const Decoder& decoder, const Node& node, int fd);

// The first `max` bytes of the open text file fd as valid UTF-8 (invalid
// bytes and control characters become spaces). Empty on any read error.
std::string ReadIndexableText(int fd, size_t max);

// The first `max` bytes of raw, cleaned as ReadIndexableText does.
std::string CleanIndexableText(const std::string& raw, size_t max);

// "annual report_2024" -> "\"annual\"* \"report\"* \"2024\"*": every run of
// letters and digits (any non-ASCII byte counts as a letter) becomes a quoted
// prefix term, all required. "" when the keyword has no such run.
std::string KeywordToMatch(const std::string& keyword);

}  // namespace orvel::syncd
