#include "kwscript/DemoForm.h"

#include <QtGui/QVBoxLayout>

DemoForm::DemoForm()
    : m_name(new QLineEdit),
      m_ok(new QPushButton("OK")),
      m_agree(new QCheckBox("I agree")),
      m_color(new QComboBox),
      m_items(new QListWidget),
      m_status(new QLabel) {
  setWindowTitle("kwscript demo form");
  m_name->setObjectName("nameEdit");
  m_ok->setObjectName("okButton");
  m_agree->setObjectName("agreeBox");
  m_color->setObjectName("colorBox");
  m_items->setObjectName("itemList");
  m_status->setObjectName("statusLabel");
  m_color->addItems(QStringList() << "red"
                                  << "green"
                                  << "blue");
  m_items->addItems(QStringList() << "first"
                                  << "second"
                                  << "third");
  QVBoxLayout* layout = new QVBoxLayout(this);
  foreach (QWidget* widget, QList<QWidget*>() << m_name << m_ok << m_agree << m_color << m_items << m_status)
    layout->addWidget(widget);
  connect(m_ok, SIGNAL(clicked()), this, SLOT(greet()));
}

void DemoForm::greet() { m_status->setText("Hello, " + m_name->text()); }

QString DemoForm::Describe() const {
  return QString("nameEdit=\"%1\" agreeBox=%2 colorBox=\"%3\" itemList=%4 statusLabel=\"%5\"")
      .arg(m_name->text(), m_agree->isChecked() ? "checked" : "unchecked", m_color->currentText())
      .arg(m_items->count())
      .arg(m_status->text());
}
