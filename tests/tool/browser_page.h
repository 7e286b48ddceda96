// Loads an HTML file in headless Chromium, as a reader's browser would, and
// returns the DOM it rendered, what the page wrote to its console and how
// long the browser took. Chromium comes from scripts/setup.sh; a missing
// browser is an error, not a skip.
#ifndef TESTS_TOOL_BROWSER_PAGE_H
#define TESTS_TOOL_BROWSER_PAGE_H

#include <string>
#include <vector>

namespace tooltest {

struct BrowserPage {
  std::string error;                 // why the page could not be loaded; empty when it was
  std::string dom;                   // the DOM after the load, serialized
  std::vector<std::string> console;  // console messages and uncaught errors, one a line
  double seconds = 0;                // browser start to DOM written: an upper bound of the load
};

// Ends the browser (its whole process group) after timeout_ms.
BrowserPage load_in_browser(const std::string &html_path, int timeout_ms = 30000);

}  // namespace tooltest

#endif
