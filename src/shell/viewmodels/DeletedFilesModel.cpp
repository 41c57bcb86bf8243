#include "shell/viewmodels/DeletedFilesModel.hpp"

#include <map>
#include <utility>

#include "archive/RestoreTexts.hpp"

namespace quillstow::shell {

namespace fs = std::filesystem;

DeletedFilesModel::DeletedFilesModel(BackupPair pair, bool archiveIsShared, QObject* parent)
    : QObject(parent),
      pair_(std::move(pair)),
      archiveRoot_(archiveRootOf(pair_)),
      archiveIsShared_(archiveIsShared) {
    connect(&run_, &RestoreRun::changed, this, &DeletedFilesModel::changed);
    scan_ = startTask<std::vector<DeletedFileItem>>(
        this, [root = archiveRoot_](std::stop_token stop) { return scanArchive(root, stop); },
        [this](std::vector<DeletedFileItem> items) {
            items_ = std::move(items);
            days_ = daysOf(items_);
            markTwins();
            isLoading_ = false;
            refilter();
        });
}

DeletedFilesModel::~DeletedFilesModel() = default;

void DeletedFilesModel::markTwins() {
    std::map<std::pair<std::string, std::string>, int> copies;
    for (const auto& item : items_)
        ++copies[{item.day, item.file.relativePath}];
    hasTwin_.clear();
    for (const auto& item : items_)
        hasTwin_.push_back(copies[{item.day, item.file.relativePath}] > 1);
}

std::string DeletedFilesModel::timeShownBeside(std::size_t index) const {
    if (index >= items_.size() || !hasTwin_[index] || !items_[index].deletedAt) return {};
    return restoretext::archivedAtText(
        std::int64_t(dates::secondsSinceEpoch(*items_[index].deletedAt)));
}

void DeletedFilesModel::setSearchText(std::string text) {
    if (text == searchText_) return;
    searchText_ = std::move(text);
    refilter();
}

void DeletedFilesModel::setDayRange(DayRange range) {
    if (range.first == range_.first && range.last == range_.last) return;
    range_ = std::move(range);
    refilter();
}

void DeletedFilesModel::refilter() {
    shown_ = filteredIndices(items_, searchText_, range_);
    emit rowsChanged();
    emit changed();
}

void DeletedFilesModel::restoreToOriginal() {
    if (whyNotToOriginal().empty()) restoreTo(pair_.sourceURL);
}

std::string DeletedFilesModel::whyNotToOriginal() const {
    return archiveIsShared_ ? std::string(restoretext::sharedArchiveHelp) : std::string();
}

void DeletedFilesModel::restoreTo(const fs::path& folder) {
    if (!canRestore()) return;
    run_.start(recoveryJobs(items_, archiveRoot_), folder);
}

}  // namespace quillstow::shell
