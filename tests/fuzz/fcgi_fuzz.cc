// libFuzzer target: the FastCGI responder decoder over an arbitrary byte
// stream cut into records, as the worker reads its connection. Whatever the
// bytes, the decoder answers, refuses with a status, or hands out body bytes
// that lie inside the record; it never reads past what it was given.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fcgi/codec.h"
#include "fcgi/decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::fcgi::DecoderLimits limits;
  limits.pairs.total_max = 4096;
  zemo::fcgi::Decoder decoder(limits);
  size_t pos = 0;
  while (size - pos >= zemo::fcgi::kHeaderLen) {
    zemo::fcgi::Header h;
    if (!zemo::fcgi::ParseHeader(data + pos, &h).ok()) return 0;
    pos += zemo::fcgi::kHeaderLen;
    size_t whole = static_cast<size_t>(h.content_length) + h.padding_length;
    if (size - pos < whole) return 0;
    // The record's content in a buffer of its own size, so that a read
    // past it is caught by the sanitizer.
    std::string content(reinterpret_cast<const char*>(data + pos), h.content_length);
    pos += whole;
    zemo::fcgi::Decoder::Outcome out;
    if (!decoder.OnRecord(h, reinterpret_cast<const uint8_t*>(content.data()), &out).ok()) return 0;
    if (out.event == zemo::fcgi::Decoder::Event::kStdin && out.len != h.content_length) std::abort();
    if (out.event == zemo::fcgi::Decoder::Event::kReply && out.reply.size() < zemo::fcgi::kHeaderLen) {
      std::abort();
    }
    if (decoder.body_ended()) decoder.Reset();
  }
  return 0;
}
