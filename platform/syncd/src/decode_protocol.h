// decode_protocol: how the daemon talks to its decoder program,
// orvel-decode, which is installed next to orvel-syncd.
//
// The daemon runs one decoder per file, as
//   orvel-decode thumb <ext> <box> <jpg|png|webp> <animate 0|1> <max pixels>
//   orvel-decode pdf-text <max bytes>
// with the file to decode as standard input and the result as standard
// output (the thumbnail's file, or a pipe for the text). The decoder exits
// with one of the codes below; on any failure it writes one line saying why
// to standard error.
#pragma once

namespace orvel::syncd::decode {

constexpr char kProgram[] = "orvel-decode";

enum Exit : int {
  kOk = 0,
  kUsage = 2,        // bad arguments
  kUndecodable = 3,  // not a file of a kind it reads, or damaged
  kTooLarge = 4,     // more pixels than allowed
  kWriteFailed = 5,  // the output could not be written
};

}  // namespace orvel::syncd::decode
