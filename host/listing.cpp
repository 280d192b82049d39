#include "listing.h"

#include <zlib.h>

#include <charconv>

#include "page_files.h"

namespace {

// The text compressed by gzip; empty when there is no memory for it.
std::string gzip(std::string_view text) {
  constexpr int kGzipWindow = 15 + 16;  // the largest window; 16 adds gzip's header and trailer
  constexpr int kUsualMemory = 8;
  z_stream stream{};
  if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipWindow, kUsualMemory, Z_DEFAULT_STRATEGY) != Z_OK)
    return {};
  std::string compressed(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<z_const Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
  stream.avail_out = static_cast<uInt>(compressed.size());
  const bool whole = deflate(&stream, Z_FINISH) == Z_STREAM_END;
  compressed.resize(whole ? stream.total_out : 0);
  compressed.shrink_to_fit();
  deflateEnd(&stream);
  return compressed;
}

std::string hexadecimal(unsigned long number) {
  char digits[2 * sizeof number];
  const auto end = std::to_chars(digits, digits + sizeof digits, number, 16);
  return {digits, end.ptr};
}

}  // namespace

Listing listing_make(std::string_view description) {
  const auto* const bytes = reinterpret_cast<const Bytef*>(description.data());
  return {.text = std::string(description),
          .compressed = gzip(description),
          .tag = std::to_string(description.size()) + "-" + hexadecimal(crc32_z(0, bytes, description.size()))};
}

HttpAnswer listing_answer(const HttpRequest& request, const Listing& listing) {
  const bool compressed = !listing.compressed.empty() && page_takes_gzip(request.accept_encoding);
  const std::string tag = "\"" + listing.tag + (compressed ? "-gz\"" : "\"");
  HttpAnswer answer{.status = 200};
  answer.more = "etag: " + tag + "\r\nvary: accept-encoding, authorization, origin\r\n";
  if (page_names_tag(request.if_none_match, tag)) {
    answer.status = 304;
    return answer;
  }
  if (compressed) answer.more += "content-encoding: gzip\r\n";
  answer.body = compressed ? listing.compressed : listing.text;
  return answer;
}
