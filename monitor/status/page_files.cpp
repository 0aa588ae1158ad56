#include "status/page_files.h"

#include <algorithm>
#include <iterator>

namespace {

// Text of the files in page/, which the build writes.
constexpr char kPage[] =
#include "page/page.html.inc"
    ;
constexpr char kStyle[] =
#include "page/page.css.inc"
    ;
constexpr char kIcon[] =
#include "page/icon.svg.inc"
    ;
constexpr char kMain[] =
#include "page/page.js.inc"
    ;
constexpr char kElements[] =
#include "page/elements.js.inc"
    ;
constexpr char kSparkline[] =
#include "page/sparkline.js.inc"
    ;
constexpr char kText[] =
#include "page/text.js.inc"
    ;
constexpr char kTrouble[] =
#include "page/trouble.js.inc"
    ;

struct PageFile {
  const char* path;
  const char* type;
  const char* text;
};

constexpr char kScriptType[] = "text/javascript; charset=utf-8";

constexpr PageFile kFiles[] = {
    {"/", "text/html; charset=utf-8", kPage},
    {"/page/page.css", "text/css; charset=utf-8", kStyle},
    {"/page/icon.svg", "image/svg+xml", kIcon},
    {"/page/page.js", kScriptType, kMain},
    {"/page/elements.js", kScriptType, kElements},
    {"/page/sparkline.js", kScriptType, kSparkline},
    {"/page/text.js", kScriptType, kText},
    {"/page/trouble.js", kScriptType, kTrouble},
};

// The page shows text that comes from processes. Even if that text is hostile, the browser runs no
// script and loads no file except these, and sends nothing to another server.
constexpr char kPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

}  // namespace

bool answer_with_page_file(const std::string& path, httplib::Response& response) {
  const auto* const file = std::find_if(std::begin(kFiles), std::end(kFiles),
                                        [&](const PageFile& each) { return each.path == path; });
  if (file == std::end(kFiles)) return false;
  response.status = 200;
  response.set_header("Content-Security-Policy", kPolicy);
  response.set_header("Referrer-Policy", "no-referrer");
  response.set_content(file->text, file->type);
  return true;
}
