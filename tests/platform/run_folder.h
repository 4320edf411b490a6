#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "tests/platform/private_mounts.h"

namespace support {

/// An empty /run of the test's own, which is also /var/run.
class RunFolder : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        _mounts = std::make_unique<PrivateMounts>();
        _mounts->MountMemory("/run", "mode=755");
        if (!std::filesystem::equivalent("/run", "/var/run")) {
            _mounts->Bind("/run", "/var/run");
        }
    }

    /// From here on it looks as if systemd ran as the first process.
    void LookBooted() { std::filesystem::create_directories("/run/systemd/system"); }

private:
    std::unique_ptr<PrivateMounts> _mounts;
};

} // namespace support
