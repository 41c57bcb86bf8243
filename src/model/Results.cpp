#include "model/Results.hpp"

#include "model/Coding.hpp"

namespace quillstow {

namespace {

json::Value errorsToJson(const std::vector<FileOperationError>& errors) {
    json::Value list = json::Value::array();
    for (const auto& error : errors)
        list.push_back(toJson(error));
    return list;
}

}  // namespace

Error asError(const FileOperationError& error) {
    return Error{error.underlying.domain, error.underlying.code,
                 error.operation + " " + error.url.native() + ": " + error.underlying.description};
}

json::Value toJson(const Error& error) {
    return json::Value{
        {"domain", error.domain}, {"code", error.code}, {"description", error.description}};
}

json::Value toJson(const FileOperationError& error) {
    return json::Value{{"url", coding::fromFileUrl(error.url)},
                       {"operation", error.operation},
                       {"underlying", toJson(error.underlying)}};
}

json::Value toJson(const BackupResult& result) {
    json::Value deferred = json::Value::object();
    for (const auto& [editor, count] : result.filesDeferredByEditor)
        deferred[editor] = count;
    return json::Value{
        {"copiedFiles", result.copiedFiles},
        {"copiedRelativePaths", result.copiedRelativePaths},
        {"archivedFiles", result.archivedFiles},
        {"bytesTransferred", result.bytesTransferred},
        {"duration", result.duration},
        {"errors", errorsToJson(result.errors)},
        {"abortedDueToVolumeLoss", result.abortedDueToVolumeLoss},
        {"filesDeferredByEditor", std::move(deferred)},
        {"recommendedProfile", coding::nameOf(backupProfileNames, result.recommendedProfile)},
        {"approximateSourceBytes", result.approximateSourceBytes},
    };
}

json::Value toJson(const OffsiteSyncResult& result) {
    return json::Value{
        {"copiedFiles", result.copiedFiles},
        {"bytesTransferred", result.bytesTransferred},
        {"duration", result.duration},
        {"errors", errorsToJson(result.errors)},
        {"abortedDueToFolderLoss", result.abortedDueToFolderLoss},
    };
}

}  // namespace quillstow
