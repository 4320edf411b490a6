#include "tests/support/temp_dir.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace support {

TempDir::TempDir() : TempDir(std::filesystem::temp_directory_path().string()) {}

TempDir::TempDir(const std::string& strParent) {
    std::string strTemplate = strParent + "/vuko-test-XXXXXX";
    if (mkdtemp(strTemplate.data()) == nullptr) {
        throw std::runtime_error("mkdtemp " + strTemplate);
    }
    _strPath = strTemplate;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(_strPath, ignored);
}

std::string TempDir::operator/(const std::string& strName) const {
    return _strPath + "/" + strName;
}

std::string ReadFile(const std::string& strPath) {
    std::ifstream fs(strPath, std::ios::binary);
    std::ostringstream ssContent;
    ssContent << fs.rdbuf();
    return std::move(ssContent).str();
}

void WriteFile(const std::string& strPath, const std::string& strContent) {
    std::ofstream fs(strPath, std::ios::binary | std::ios::trunc);
    fs << strContent;
    if (!fs.flush()) {
        throw std::runtime_error("write " + strPath);
    }
}

int ModeOf(const std::string& strPath) {
    struct stat stFile = {};
    return ::stat(strPath.c_str(), &stFile) == 0 ? static_cast<int>(stFile.st_mode & 07777) : -1;
}

bool Exists(const std::string& strPath) {
    struct stat stFile = {};
    return ::lstat(strPath.c_str(), &stFile) == 0;
}

} // namespace support
