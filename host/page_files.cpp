#include "page_files.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string_view>
#include <system_error>

#include "base/text.h"

namespace fs = std::filesystem;

namespace {

struct TypeRow {
  std::string_view extension;
  std::string_view type;
};

constexpr TypeRow kTypes[] = {
    {.extension = ".html", .type = "text/html; charset=utf-8"},
    {.extension = ".js", .type = "text/javascript; charset=utf-8"},
    {.extension = ".mjs", .type = "text/javascript; charset=utf-8"},
    {.extension = ".css", .type = "text/css; charset=utf-8"},
    {.extension = ".json", .type = "application/json"},
    {.extension = ".webmanifest", .type = "application/manifest+json"},
    {.extension = ".map", .type = "application/json"},
    {.extension = ".svg", .type = "image/svg+xml"},
    {.extension = ".png", .type = "image/png"},
    {.extension = ".jpg", .type = "image/jpeg"},
    {.extension = ".ico", .type = "image/x-icon"},
    {.extension = ".woff2", .type = "font/woff2"},
    {.extension = ".wasm", .type = "application/wasm"},
    {.extension = ".txt", .type = "text/plain; charset=utf-8"},
};

std::string_view type_of(const fs::path& file) {
  const std::string extension = file.extension().string();
  const auto row = std::ranges::find(kTypes, std::string_view(extension), &TypeRow::extension);
  return row != std::end(kTypes) ? row->type : "application/octet-stream";
}

// Not every browser includes WebSocket connections to the same host in 'self', so they are allowed explicitly.
std::string page_policy(const std::string& host) {
  return "default-src 'self'; connect-src 'self' ws://" + host +
         "; img-src 'self' data:; object-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
}

std::string page(std::string_view title, std::string_view text) {
  std::string html = "<!doctype html><html lang=\"en\"><meta charset=\"utf-8\"><title>";
  return html.append(title).append("</title><h1>").append(title).append("</h1>").append(text).append("</html>\n");
}

// The file that a path names inside the folder; empty when there is none or it is outside the folder.
fs::path file_of(const std::string& folder, std::string_view path) {
  std::error_code failure;
  const fs::path root = fs::canonical(folder, failure);
  if (failure || path.find('\0') != std::string_view::npos) return {};
  fs::path wanted = root / fs::path(path.substr(std::min(path.find_first_not_of('/'), path.size())));
  if (path.ends_with('/')) wanted /= "index.html";
  const fs::path file = fs::canonical(wanted, failure);
  if (failure || !fs::is_regular_file(file, failure) || file.extension() == ".gz") return {};
  return std::ranges::mismatch(root, file).in1 == root.end() ? file : fs::path();
}

// Opens a file that has just been seen to be regular. Returns 0 or an error number, ENOENT if it is no longer regular.
int open_regular(const fs::path& file, OpenFile& ret_file, struct stat& ret_status) {
  // Without O_NONBLOCK, opening a FIFO in its place would wait for a writer.
  const int descriptor = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) return errno == ELOOP || errno == ENOTDIR ? ENOENT : errno;
  struct stat status {};
  const int reason = fstat(descriptor, &status) != 0 ? errno : S_ISREG(status.st_mode) ? 0 : ENOENT;
  if (reason != 0) {
    close(descriptor);
    return reason;
  }
  ret_file = {.descriptor = descriptor, .bytes = static_cast<std::uint64_t>(status.st_size)};
  ret_status = status;
  return 0;
}

// Takes the text up to the separator from the rest, without surrounding blanks.
std::string_view cut(std::string_view& rest, char separator) {
  const std::size_t end = std::min(rest.find(separator), rest.size());
  std::string_view piece = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  const auto blank = [](char c) { return c == ' ' || c == '\t'; };
  while (!piece.empty() && blank(piece.front())) piece.remove_prefix(1);
  while (!piece.empty() && blank(piece.back())) piece.remove_suffix(1);
  return piece;
}

std::string tag_of(const struct stat& status, bool compressed) {
  const auto changed = static_cast<long long>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
  return "\"" + std::to_string(status.st_size) + "-" + std::to_string(changed) + (compressed ? "-gz\"" : "\"");
}

// Whether the file name contains a hash of the content, as the page's build makes it: assets/NAME-HASH.ext with eight
// characters of hash. The requested path counts, since a link to such a file can later point to another file.
bool is_hashed(std::string_view path) {
  constexpr std::string_view kFolder = "/assets/";
  constexpr std::size_t kHashLength = 8;
  if (!path.starts_with(kFolder)) return false;
  const std::string_view name = path.substr(kFolder.size());
  const std::string_view stem = name.substr(0, name.find_last_of('.'));
  if (stem.size() == name.size() || stem.size() < kHashLength + 2) return false;
  const std::string_view hash = stem.substr(stem.size() - kHashLength);
  return name.find('/') == std::string_view::npos && stem[stem.size() - kHashLength - 1] == '-' &&
         std::ranges::all_of(hash, [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
         });
}

}  // namespace

bool page_takes_gzip(std::string_view accepted) {
  std::optional<bool> named;
  bool any = false;
  while (!accepted.empty()) {
    std::string_view entry = cut(accepted, ',');
    const std::string_view coding = cut(entry, ';');
    bool wanted = true;
    while (!entry.empty()) {
      std::string_view value = cut(entry, ';');
      const std::string_view name = cut(value, '=');
      if (equal_ignoring_case(name, "q"))
        wanted = value.find_first_not_of("0123456789.") == std::string_view::npos &&
                 value.find_first_of("123456789") != std::string_view::npos;
    }
    if (equal_ignoring_case(coding, "gzip") || equal_ignoring_case(coding, "x-gzip"))
      named = wanted && named.value_or(true);
    else if (coding == "*")
      any = wanted;
  }
  return named.value_or(any);
}

bool page_names_tag(std::string_view tags, std::string_view tag) {
  std::string_view whole = tags;
  if (cut(whole, ',') == "*") return whole.empty();
  for (;;) {
    // A tag may contain commas; it ends with its quotation mark.
    tags.remove_prefix(std::min(tags.find_first_not_of(" \t,"), tags.size()));
    if (tags.starts_with("W/")) tags.remove_prefix(2);
    if (!tags.starts_with('"')) return false;
    const std::size_t end = tags.find('"', 1);
    if (end == std::string_view::npos) return false;
    if (tags.substr(0, end + 1) == tag) return true;
    tags.remove_prefix(end + 1);
  }
}

HttpAnswer page_answer(const HttpRequest& request, const std::string& folder) {
  const fs::path file = file_of(folder, request.path);
  OpenFile opened;
  struct stat status {};
  bool compressed = false;
  int reason = ENOENT;
  if (!file.empty()) {
    compressed = page_takes_gzip(request.accept_encoding) && open_regular(file.string() + ".gz", opened, status) == 0;
    reason = compressed ? 0 : open_regular(file, opened, status);
  }

  HttpAnswer answer{.status = 404, .type = "text/html; charset=utf-8", .policy = page_policy(request.host)};
  if (reason == 0) {
    const std::string tag = tag_of(status, compressed);
    answer.status = 200;
    answer.type = type_of(file);
    answer.more = "etag: " + tag + "\r\nvary: accept-encoding, origin\r\ncache-control: " +
                  (is_hashed(request.path) ? "public, max-age=31536000, immutable" : "no-cache") + "\r\n";
    if (page_names_tag(request.if_none_match, tag)) {
      close(opened.descriptor);
      answer.status = 304;
      return answer;
    }
    if (compressed) answer.more += "content-encoding: gzip\r\n";
    answer.file = opened;
    return answer;
  }
  if (reason != ENOENT)
    return http_error(500, std::string("the page's file cannot be opened: ") + strerrordesc_np(reason));

  std::error_code ignored;
  answer.body = fs::exists(fs::path(folder) / "index.html", ignored)
                    ? page("Not found", "<p>There is no such page. <a href=\"/\">To the page of this server</a></p>")
                    : page("The page is not built",
                           "<p>Build it with <code>npm ci &amp;&amp; npm run build</code> in the folder "
                           "<code>web</code>, or give its folder with <code>--web</code>, then load again.</p>"
                           "<p>The server itself runs: JSON-RPC 2.0 at <code>/jsonrpc</code>, and "
                           "<code>GET</code> and <code>PUT</code> on every URI.</p>");
  return answer;
}
