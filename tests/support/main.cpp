#include <QApplication>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

int updaterMain(int argc, char** argv); // the program's main()

int main(int argc, char** argv) {
    if (access("/opt/host-bin", F_OK) != 0) {
        std::fprintf(stderr, "The tests write to the paths of the running system: use tests/in-sandbox.\n");
        return 2;
    }
    if (argc > 1 && std::strcmp(argv[1], "--updater") == 0) {
        return updaterMain(argc - 1, argv + 1);
    }
    testing::InitGoogleTest(&argc, argv);
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
