// Objects and texts as a person reads them, for the object tree, messages
// and what a script or a client is told about an object.
#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>

namespace kwauto {

// `text` as a JSON string literal (in double quotes, with \\, \" and the
// control characters escaped), as the object tree and the members list
// print it.
QString Quoted(const QString& text);

// How long a text may be before it is cut.
constexpr int kShortTextLength = 60;

// `text` cut to its first kShortTextLength characters and followed by
// "…(N chars)" when it is longer.
QString Shortened(const QString& text);

// The shortened text as a quoted literal (Quoted).
QString QuotedShort(const QString& text);

// What a person reads on an object: the first non-empty one of its text,
// windowTitle, title and plainText properties, and which one it is.
QString ReadableText(const QObject* object, QString* property = nullptr);

// What the user sees of the readable text (of a combo box, its current
// text): a button's, an action's, a
// menu's or a group box's "&Save" shows as "Save" ("&&" as "&"), an
// action's shortcut after a tab is left out, as is a label's mnemonic when
// it has a buddy to give the focus to.
QString VisibleText(const QObject* object);

// `text` without its mnemonic marks: "&Save" is "Save", "&&" is "&".
QString WithoutMnemonics(const QString& text);

// `QPushButton "okButton" "OK"`: the object's class, its object name and its
// readable text (cut when long), leaving out what is empty.
QString ObjectDescription(const QObject* object);

}  // namespace kwauto
