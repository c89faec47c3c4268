// The small form kwscript shows for scripts to drive: a name, a button that
// greets it in the status label, a check box, a colour box and a list.
#pragma once

#include <QtGui/QCheckBox>
#include <QtGui/QComboBox>
#include <QtGui/QLabel>
#include <QtGui/QLineEdit>
#include <QtGui/QListWidget>
#include <QtGui/QPushButton>
#include <QtGui/QWidget>

class DemoForm : public QWidget {
  Q_OBJECT

 public:
  DemoForm();

  // One line with the state of every control, as a test reads it.
  QString Describe() const;

 private slots:
  // Sets the status label to "Hello, " and the name.
  void greet();

 private:
  QLineEdit* m_name;
  QPushButton* m_ok;
  QCheckBox* m_agree;
  QComboBox* m_color;
  QListWidget* m_items;
  QLabel* m_status;
};
