// Selenium's clients answer isDisplayed() and getAttribute() by sending big
// JavaScript functions of the browser ("atoms") through Execute Script, and
// WebdriverIO and Selenium do so for a few more questions WebDriver has no
// command for. An application has no DOM to run them on: the server
// recognises them and asks the agent the command they stand for instead.
#pragma once

#include <string>

namespace kwdriver {

enum class Atom {
  kNone,
  kIsDisplayed,     // args: [element]            -> isElementDisplayed
  kGetAttribute,    // args: [element, name]      -> getElementAttribute
  kIsFocused,       // args: [element]            -> isElementFocused
  kIsClickable,     // args: [element]            -> isElementClickable
  kScrollIntoView,  // args: [element]            -> scrollElementIntoView
};

Atom RecogniseAtom(const std::string& script);

// The agent's command an atom stands for.
const char* AtomCommand(Atom atom);

}  // namespace kwdriver
