#include "screen.h"

#include <stdlib.h>

#include <memory>
#include <string>

#include "bounds.h"
#include "page_files.h"

HttpAnswer screen_answer(const HttpRequest& request, const Stack& stack) {
  if (stack.tv_screen == nullptr)
    return http_error(404, "this platform has no screen; only the virtual television has one");
  std::uint8_t* bytes = nullptr;
  std::uint32_t size = 0;
  // An unknown or older tag is no number above the newest frame's, so the newest frame is always fetched.
  const std::uint64_t number = stack.tv_screen(0, &bytes, &size);
  const std::unique_ptr<std::uint8_t, decltype(&free)> owned(bytes, free);
  if (number == 0 || bytes == nullptr)
    return http_error(404, "this television has no picture; \"dtvctl tv screen\" tells why");
  if (size > kLimitScreenBytes)
    return http_error(502, "the television's frame has " + std::to_string(size) + " bytes, more than " +
                               std::to_string(kLimitScreenBytes));
  const std::string tag = "\"" + std::to_string(number) + "\"";
  HttpAnswer answer{.status = 200, .type = "image/jpeg"};
  answer.more = "etag: " + tag + "\r\nvary: authorization, origin\r\ncache-control: no-store\r\n";
  if (page_names_tag(request.if_none_match, tag))
    answer.status = 304;
  else
    answer.body.assign(reinterpret_cast<const char*>(bytes), size);
  return answer;
}
