// The API's item object of a file record, written once for two outputs: a
// jsoncpp tree (the answers that embed one item among other values) and
// compact JSON text (the listings, written straight from the records without
// a tree per item). Both come from one field list, in the order the text
// needs (keys sorted bytewise, as a tree's writer orders them), so the text
// is byte for byte what writing the tree would give. Reentrant.
#pragma once

#include <json/json.h>

#include <string>

#include "nimbard/nimbard.h"

namespace orvel::module {

// Sets the item's members in out (made an object first when it is not one).
void WriteItemTree(const Nimbard::FileInfo& info, Json::Value& out);

// Appends the item's compact text to *out. False, with *out partly written,
// when the text cannot match the tree's writer (a properties text that holds
// comments): the caller then writes the answer from a tree instead.
bool AppendItemText(const Nimbard::FileInfo& info, std::string* out);

}  // namespace orvel::module
