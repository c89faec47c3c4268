// A QApplication around the tests, as in an application being driven.
#include <gtest/gtest.h>

#include <QtGui/QApplication>

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
