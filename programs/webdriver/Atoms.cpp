#include "webdriver/Atoms.h"

#include <algorithm>
#include <cctype>

namespace kwdriver {

namespace {

// The text without blanks, so that atoms minified with and without
// whitespace (the Python and the Java bindings) look alike.
std::string Squeezed(const std::string& text, size_t limit) {
  std::string out;
  out.reserve(std::min(text.size(), limit));
  for (size_t i = 0; i < text.size() && out.size() < limit; ++i)
    if (!std::isspace(static_cast<unsigned char>(text[i]))) out += text[i];
  return out;
}

bool Has(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

}  // namespace

Atom RecogniseAtom(const std::string& script) {
  // Selenium's bindings name the atom in a comment before it.
  const std::string head = Squeezed(script.substr(0, 64), 64);
  if (head.rfind("/*isDisplayed*/", 0) == 0) return Atom::kIsDisplayed;
  if (head.rfind("/*getAttribute*/", 0) == 0) return Atom::kGetAttribute;
  // WebdriverIO's own, by name: its displayedness function, and the
  // element's checkVisibility() it tries first.
  if (Has(script, "function isElementDisplayed(") || Has(script, "function checkVisibility(elem"))
    return Atom::kIsDisplayed;
  if (Has(script, "function isFocused(elem)") && Has(script, "document.activeElement")) return Atom::kIsFocused;
  if (Has(script, "function isElementClickable(elem)")) return Atom::kIsClickable;
  // Selenium's location once scrolled into view (Python and Java alike):
  // scroll, then read the bounding rectangle.
  if (script.size() < 400 && Has(script, "arguments[0]") && Has(script, "scrollIntoView(") &&
      Has(script, "getBoundingClientRect()"))
    return Atom::kScrollIntoView;
  // Without the comment: the Closure-compiled frame both atoms share, told
  // apart by words only one of them has.
  if (script.size() < 2000) return Atom::kNone;
  const std::string body = Squeezed(script, 1 << 20);
  if (!Has(body, "returnthis._.apply(null,arguments)")) return Atom::kNone;
  if (Has(body, "allowfullscreen") && Has(body, "readonly")) return Atom::kGetAttribute;
  if (Has(body, "opacity") && Has(body, "overflow")) return Atom::kIsDisplayed;
  return Atom::kNone;
}

const char* AtomCommand(Atom atom) {
  switch (atom) {
    case Atom::kIsDisplayed: return "isElementDisplayed";
    case Atom::kGetAttribute: return "getElementAttribute";
    case Atom::kIsFocused: return "isElementFocused";
    case Atom::kIsClickable: return "isElementClickable";
    case Atom::kScrollIntoView: return "scrollElementIntoView";
    case Atom::kNone: break;
  }
  return "";
}

}  // namespace kwdriver
