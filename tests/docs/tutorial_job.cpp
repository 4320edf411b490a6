#include <crond/pkgconfigmanager.h>
#include <json/json.h>

int main() {
    Json::Value jsJob;
    jsJob["name"] = "thumbnails";
    jsJob["user"] = "package";
    jsJob["package_username"] = "photos";
    jsJob["period"] = "daily";
    jsJob["cmd_list"].append("/usr/local/photos/bin/index");
    jsJob["cmd_list"].append("--thumbnails");
    return VUKO::VUKOCrond::PkgConfigManager("photos", "thumbnails").Save(jsJob) ? 0 : 1;
}
