#include <platform/vlibc.h>
#include <platform/vukoutils.h>

#include <iostream>

int main() {
    std::vector<std::string> vecPieces;
    VUKOUtils::StringExplode(vecPieces, "one,,two", ",");
    std::cout << vecPieces.size() << " pieces, " << (VLIBCFileCheckDir("/") != 0 ? "a folder" : "no folder") << "\n";
}
