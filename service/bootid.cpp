#include "service/bootid.h"

#include <fstream>

namespace VUKO::VUKOCrond::Service {

std::string BootId() {
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string strId;
    return std::getline(file, strId) && !strId.empty() ? strId : "unknown";
}

} // namespace VUKO::VUKOCrond::Service
