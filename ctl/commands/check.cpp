#include <algorithm>
#include <iostream>
#include <memory>

#include "ctl/checkedfile.h"
#include "ctl/command.h"
#include "ctl/reviewtext.h"
#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

ExitStatus Run(const std::vector<std::string>& vecPaths, const Common& common) {
    FileChecker checker;
    for (const std::string& strPath : vecPaths) {
        checker.Check(strPath);
    }
    Json::Value jsResult(Json::objectValue);
    jsResult["files"] = Json::Value(Json::arrayValue);
    ExitStatus eStatus = EXIT_DONE;
    for (const CheckedFile& file : checker.Take()) {
        const bool bValid = file.review.vecErrors.empty();
        eStatus = bValid ? eStatus : std::max(eStatus, file.bDenied ? EXIT_DENIED : EXIT_WRONG);
        if (common.bJson) {
            Json::Value jsFile(Json::objectValue);
            jsFile["file"] = file.strFile;
            jsFile["valid"] = bValid;
            PutReview(jsFile, file.review, file.source);
            jsResult["files"].append(std::move(jsFile));
            continue;
        }
        PrintReview(std::cout, file.strFile, file.review, file.source);
        if (bValid && file.review.vecWarnings.empty()) {
            std::cout << Readable(file.strFile) << ": valid\n";
        }
    }
    if (common.bJson) {
        PrintJson(jsResult);
    }
    return eStatus;
}

} // namespace

void AddCheck(CLI::App& app, Common& common) {
    const auto vecPaths = std::make_shared<std::vector<std::string>>();
    AddCommand(app, common, "check", "Tell what is wrong with definition files, and what may surprise in them",
               [vecPaths, &common] { return Run(*vecPaths, common); })
        .Option("FILE", *vecPaths, "Definition files, folders of them, - for standard input")
        .Required();
}

} // namespace VUKO::VUKOCrond::Ctl
