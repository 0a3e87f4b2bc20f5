// Every GigE test enumerates cameras, and GigE discovery broadcasts on every
// interface: refuse to run any of them unless this process sees loopback alone, as
// inside the namespace run-in-netns.sh makes.

#include <gtest/gtest.h>

#include "tests/gige/GigeCameras.h"

namespace {

class LoopbackOnly : public ::testing::Environment {
public:
    void SetUp() override {
        const std::string others = Tavri::gige::interfacesBesidesLoopback();
        if (!others.empty())
            FAIL() << "interfaces besides loopback (" << others
                   << "): GigE tests run only through tests/gige/run-in-netns.sh";
    }
};

// A fatal failure here keeps gtest from running any test.
const auto* const guard = ::testing::AddGlobalTestEnvironment(new LoopbackOnly);

}  // namespace
