#include <QApplication>
#include <gtest/gtest.h>

// What the sanitizers report of libraries that are not instrumented.
extern "C" const char* __tsan_default_suppressions() {
    return "race:QWaitCondition::~QWaitCondition\n";
}
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
