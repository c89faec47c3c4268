// Selenium's clients answer isDisplayed() and getAttribute() by sending big
// JavaScript functions of the browser ("atoms") through Execute Script. An
// application has no DOM to run them on: the server recognises them and
// asks the agent the WebDriver command they stand for instead.
#pragma once

#include <string>

namespace kwdriver {

enum class Atom {
  kNone,
  kIsDisplayed,   // args: [element]            -> isElementDisplayed
  kGetAttribute,  // args: [element, name]      -> getElementAttribute
};

Atom RecogniseAtom(const std::string& script);

}  // namespace kwdriver
