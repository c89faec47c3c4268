// The object tree (kwauto::DescribeObjectTree) of a small hidden window, as
// indented text and as JSON: what it names of each object, the items of a
// list cut at the cap, long and awkward texts.
#include <gtest/gtest.h>

#include <QtCore/QStringList>
#include <QtGui/QLabel>
#include <QtGui/QListWidget>
#include <QtGui/QPushButton>

#include <nlohmann/json.hpp>

#include <memory>

#include "automation/ObjectTree.h"

namespace {

using Json = nlohmann::json;

// The window, never shown (so its geometry is the one set):
//   QWidget #win "Tree test"
//     QLabel #title "Hello"
//     QPushButton #go "Go"
//     QLabel (a 70-character text)
//     QLabel #quote (quotes, a backslash and a line break)
//     QListWidget #list: one, two, three
class ObjectTree : public ::testing::Test {
 protected:
  void SetUp() override {
    m_window.reset(new QWidget);
    m_window->setObjectName("win");
    m_window->setWindowTitle("Tree test");
    m_window->setGeometry(0, 0, 300, 200);
    auto* title = new QLabel("Hello", m_window.get());
    title->setObjectName("title");
    title->setGeometry(10, 10, 100, 20);
    auto* go = new QPushButton("Go", m_window.get());
    go->setObjectName("go");
    go->setGeometry(10, 40, 80, 25);
    auto* longLabel = new QLabel(QString(70, 'x'), m_window.get());
    longLabel->setGeometry(10, 70, 200, 20);
    auto* quote = new QLabel("say \"hi\" \\\nbye", m_window.get());
    quote->setObjectName("quote");
    quote->setGeometry(10, 100, 200, 40);
    m_list = new QListWidget(m_window.get());
    m_list->setObjectName("list");
    m_list->addItems(QStringList() << "one" << "two" << "three");
  }
  void TearDown() override { m_window.reset(); }

  std::unique_ptr<QWidget> m_window;
  QListWidget* m_list = nullptr;
};

TEST_F(ObjectTree, TextNamesEachObjectIndentedByLevel) {
  const QStringList lines = kwauto::DescribeObjectTree(false, 2);
  ASSERT_GE(lines.size(), 5);
  const std::string expected[] = {
      "QWidget #win windowTitle=\"Tree test\" 0,0 300x200 hidden",
      "  QLabel #title text=\"Hello\" 10,10 100x20 hidden",
      "  QPushButton #go text=\"Go\" 10,40 80x25 hidden",
      "  QLabel text=\"" + std::string(60, 'x') + "\xe2\x80\xa6(70 chars)\" 10,70 200x20 hidden",
      "  QLabel #quote text=\"say \\\"hi\\\" \\\\\\nbye\" 10,100 200x40 hidden",
  };
  for (int i = 0; i < 5; ++i) EXPECT_EQ(lines[i].toUtf8().constData(), expected[i]);
  // The list: its line, then its items up to the cap, then its own children.
  const int list = lines.indexOf(QRegExp("  QListWidget #list .*"));
  ASSERT_GT(list, 0) << lines.join("\n").toStdString();
  EXPECT_EQ(lines.value(list + 1).toUtf8().constData(), std::string("    items: 3 rows \xc3\x97 1 columns"));
  EXPECT_EQ(lines.value(list + 2).toStdString(), "    row 0: \"one\"");
  EXPECT_EQ(lines.value(list + 3).toStdString(), "    row 1: \"two\"");
  EXPECT_EQ(lines.value(list + 4).toUtf8().constData(), std::string("    \xe2\x80\xa6 2 rows listed (--max-items N lists more)"));
  EXPECT_TRUE(lines.value(list + 5).startsWith("    ")) << "the list's children follow";
}

TEST_F(ObjectTree, TextListsEveryItemUnderTheCap) {
  const QStringList lines = kwauto::DescribeObjectTree(false, 3);
  const int list = lines.indexOf(QRegExp("  QListWidget #list .*"));
  ASSERT_GT(list, 0);
  EXPECT_EQ(lines.value(list + 4).toStdString(), "    row 2: \"three\"");
  EXPECT_FALSE(lines.join("\n").contains("rows listed"));
}

TEST_F(ObjectTree, JsonIsOneDocumentOfTheSameTree) {
  const QByteArray text = kwauto::DescribeObjectTree(true, 2).join("\n").toUtf8();
  const Json tree = Json::parse(text.constData(), nullptr, false);
  ASSERT_FALSE(tree.is_discarded()) << text.constData();
  ASSERT_TRUE(tree.is_array());
  ASSERT_EQ(tree.size(), 1u);
  const Json& window = tree[0];
  EXPECT_EQ(window["class"], "QWidget");
  EXPECT_EQ(window["name"], "win");
  EXPECT_EQ(window["windowTitle"], "Tree test");
  EXPECT_EQ(window["geometry"], Json({0, 0, 300, 200}));
  EXPECT_EQ(window["visible"], false);
  const Json& children = window["children"];
  ASSERT_GE(children.size(), 5u);
  EXPECT_EQ(children[0]["text"], "Hello");
  EXPECT_EQ(children[1]["class"], "QPushButton");
  EXPECT_EQ(children[1]["geometry"], Json({10, 40, 80, 25}));
  EXPECT_EQ(children[2]["name"], "");
  EXPECT_EQ(children[2]["text"], std::string(60, 'x') + "\xe2\x80\xa6(70 chars)");
  EXPECT_EQ(children[3]["text"], "say \"hi\" \\\nbye");
  const Json& list = children[4];
  EXPECT_EQ(list["name"], "list");
  EXPECT_EQ(list["items"]["rows"], 3);
  EXPECT_EQ(list["items"]["columns"], 1);
  EXPECT_EQ(list["items"]["complete"], false);
  EXPECT_EQ(list["items"]["listed"],
            Json::parse(R"([{"row": 0, "cells": ["one"]}, {"row": 1, "cells": ["two"]}])"));
  EXPECT_TRUE(list["children"].is_array());
}

TEST(ObjectTreeAlone, NoWindowsNoObjects) {
  EXPECT_TRUE(kwauto::DescribeObjectTree(false).isEmpty());
  EXPECT_EQ(kwauto::DescribeObjectTree(true).join("").toStdString(), "[]");
}

}  // namespace
