// Alerts: the application's open modal message box (QMessageBox, what
// QMessageBox::question, ::warning... show) or input dialog (QInputDialog,
// what QInputDialog::getText, ::getInt... show). Its text is the message
// box's text (and informative text) or the input dialog's label; it is
// accepted or dismissed by a click on the button a user would take for it,
// and a prompt's field takes text as typed keys.
#include <QtGui/QAbstractButton>
#include <QtGui/QAbstractSpinBox>
#include <QtGui/QApplication>
#include <QtGui/QComboBox>
#include <QtGui/QDialogButtonBox>
#include <QtGui/QInputDialog>
#include <QtGui/QLineEdit>
#include <QtGui/QMessageBox>
#include <QtGui/QPushButton>
#include <QtGui/QTextDocument>

#include "agent/ScriptCommands.h"
#include "automation/InputEvents.h"

namespace kwagent {

namespace {

// The open alert, or null.
QDialog* OpenAlert() {
  QWidget* modal = QApplication::activeModalWidget();
  if (modal != nullptr && modal->isVisible() &&
      (qobject_cast<QMessageBox*>(modal) != nullptr || qobject_cast<QInputDialog*>(modal) != nullptr))
    return static_cast<QDialog*>(modal);
  return nullptr;
}

// The open alert; `no such alert` when there is none.
QDialog* Alert() {
  if (QDialog* alert = OpenAlert()) return alert;
  QWidget* modal = QApplication::activeModalWidget();
  Fail("no such alert", modal == nullptr ? QString("no modal dialog is open")
                                         : QString("the open modal %1 is no message box or input dialog")
                                               .arg(modal->metaObject()->className()));
}

QString PlainText(const QString& text) {
  if (!Qt::mightBeRichText(text)) return text;
  QTextDocument document;
  document.setHtml(text);
  return document.toPlainText();
}

// The alert's visible button of the first role of `roles` that has one.
QAbstractButton* ButtonOf(QDialog* alert, std::initializer_list<QDialogButtonBox::ButtonRole> roles) {
  QDialogButtonBox* box = alert->findChild<QDialogButtonBox*>();
  if (box == nullptr) return nullptr;
  for (QDialogButtonBox::ButtonRole role : roles)
    foreach (QAbstractButton* button, box->buttons())
      if (box->buttonRole(button) == role && button->isVisible() && button->isEnabled()) return button;
  return nullptr;
}

void Press(QAbstractButton* button) {
  const QString why = kwauto::Click(button, kwauto::Centre(button), false);
  if (!why.isEmpty()) Fail("unknown error", why);
}

Json GetAlertText(const Json&, SessionState&) {
  QDialog* alert = Alert();
  if (auto* input = qobject_cast<QInputDialog*>(alert)) return JsonOf(input->labelText());
  auto* box = static_cast<QMessageBox*>(alert);
  QString text = PlainText(box->text());
  if (!box->informativeText().isEmpty()) text += "\n" + PlainText(box->informativeText());
  return JsonOf(text);
}

Json AcceptAlert(const Json&, SessionState&) {
  QDialog* alert = Alert();
  QAbstractButton* button = ButtonOf(alert, {QDialogButtonBox::AcceptRole, QDialogButtonBox::YesRole});
  if (button == nullptr)
    if (auto* box = qobject_cast<QMessageBox*>(alert)) button = box->defaultButton();
  if (button == nullptr) Fail("unknown error", "the alert has no button that accepts it");
  Press(button);
  return nullptr;
}

Json DismissAlert(const Json&, SessionState&) {
  QDialog* alert = Alert();
  QAbstractButton* button = ButtonOf(alert, {QDialogButtonBox::RejectRole, QDialogButtonBox::NoRole});
  if (button == nullptr)
    if (auto* box = qobject_cast<QMessageBox*>(alert)) button = box->escapeButton();
  // A message box with nothing to decline (an information box) is
  // dismissed by the one button it has.
  if (button == nullptr) button = ButtonOf(alert, {QDialogButtonBox::AcceptRole, QDialogButtonBox::YesRole});
  if (button != nullptr) {
    Press(button);
  } else {
    const QString why = kwauto::Key(alert, "Escape");
    if (!why.isEmpty()) Fail("unknown error", why);
  }
  return nullptr;
}

// The input dialog's field for its mode: a spin box for a number, an
// editable combo box or a line edit for text.
QWidget* Field(QDialog* alert) {
  if (qobject_cast<QInputDialog*>(alert) == nullptr) return nullptr;
  foreach (QAbstractSpinBox* spin, alert->findChildren<QAbstractSpinBox*>())
    if (spin->isVisible()) return spin;
  foreach (QComboBox* combo, alert->findChildren<QComboBox*>())
    if (combo->isVisible()) return combo;
  foreach (QLineEdit* edit, alert->findChildren<QLineEdit*>())
    if (edit->isVisible()) return edit;
  return nullptr;
}

Json SendAlertText(const Json& params, SessionState&) {
  const QString text = StringParam(params, "text");
  QDialog* alert = Alert();
  QWidget* field = Field(alert);
  if (field == nullptr) Fail("element not interactable", "the alert takes no text");
  // The field's text is replaced, as typing over all of it selected.
  QString why;
  if (auto* combo = qobject_cast<QComboBox*>(field); combo == nullptr || combo->isEditable())
    why = kwauto::Key(field, "Ctrl+A");
  if (why.isEmpty()) why = kwauto::Type(field, text);
  if (!why.isEmpty()) Fail("unknown error", why);
  return nullptr;
}

}  // namespace

void MeetOpenAlert(const std::string& command, const SessionState& session) {
  static const char* const kUnhandled[] = {"getAlertText", "acceptAlert", "dismissAlert", "sendAlertText",
                                           "getWindowHandle", "getWindowHandles", "switchToWindow"};
  for (const char* name : kUnhandled)
    if (command == name) return;
  if (OpenAlert() == nullptr) return;
  SessionState none;
  const QString text = TextOf(GetAlertText(Json(), none));
  const std::string& behavior = session.promptBehavior;
  if (behavior == "ignore") Fail("unexpected alert open", QString("an alert is open: %1").arg(text));
  const bool accept = behavior == "accept" || behavior == "accept and notify";
  if (accept)
    AcceptAlert(Json(), none);
  else
    DismissAlert(Json(), none);
  // "accept" and "dismiss" answer it and go on with the command.
  if (behavior == "accept" || behavior == "dismiss") return;
  Fail("unexpected alert open",
       QString("an alert was open (%1): %2").arg(accept ? "accepted" : "dismissed").arg(text));
}

void AddAlertCommands(CommandTable& table) {
  table.Add("getAlertText", &GetAlertText);
  table.Add("acceptAlert", &AcceptAlert);
  table.Add("dismissAlert", &DismissAlert);
  table.Add("sendAlertText", &SendAlertText);
}

}  // namespace kwagent
