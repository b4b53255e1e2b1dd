// One QCoreApplication for the whole test program, so worker threads and timers have
// the application object Qt expects.
#include <QCoreApplication>

#include <gtest/gtest.h>

namespace {

class QtEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        static int argc = 1;
        static char name[] = "fusion_tests";
        static char* argv[] = {name, nullptr};
        app = new QCoreApplication(argc, argv);
    }
    void TearDown() override { delete app; }

private:
    QCoreApplication* app = nullptr;
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new QtEnvironment);

}  // namespace
