#include "ctl/common.h"

#include <iostream>

namespace VUKO::VUKOCrond::Ctl {

void PrintJson(const Json::Value& jsValue) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    std::cout << Json::writeString(builder, jsValue) << "\n";
}

} // namespace VUKO::VUKOCrond::Ctl
