#pragma once

#include <gtest/gtest.h>

#include <string>

namespace support {

/// Names the cases of a parameterized test by their member `szName`.
struct CaseName {
    template <typename Case>
    std::string operator()(const ::testing::TestParamInfo<Case>& tested) const {
        return tested.param.szName;
    }
};

} // namespace support
