// A Qt application around the automation core's tests, as in the
// applications the core runs in.
#include <gtest/gtest.h>

#include <QtGui/QApplication>

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
