#include "app/UpdateService.hpp"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include "support/Dates.hpp"
#include "support/Logger.hpp"

namespace quillstow::shell {

namespace {

constexpr const char* automaticKey = "automaticallyChecksForUpdates";
constexpr const char* lastCheckKey = "lastUpdateCheck";
constexpr const char* remindedKey = "lastRemindedRelease";
constexpr int feedTimeoutMs = 30'000;
// A feed is a few hundred bytes; anything far larger isn't one.
constexpr qint64 largestFeed = 64 * 1024;

}  // namespace

UpdateService::UpdateService(Settings settings, UserDefaults& defaults, MainQueue& mainQueue,
                             const WallClock& clock, GentleReminderDelegate& delegate,
                             Reminder remind, QObject* parent)
    : QObject(parent),
      settings_(std::move(settings)),
      defaults_(defaults),
      mainQueue_(mainQueue),
      clock_(clock),
      delegate_(delegate),
      remind_(std::move(remind)),
      network_(std::make_unique<QNetworkAccessManager>()) {
    scheduleNextCheck();
}

UpdateService::~UpdateService() {
    scheduled_.cancel();
}

bool UpdateService::automaticallyChecksForUpdates() const {
    return defaults_.boolean(automaticKey);
}

void UpdateService::setAutomaticallyChecksForUpdates(bool on) {
    defaults_.setBoolean(automaticKey, on);
    scheduleNextCheck();
}

void UpdateService::checkForUpdates() {
    check(true);
}

void UpdateService::scheduleNextCheck() {
    scheduled_.cancel();
    if (!automaticallyChecksForUpdates()) return;
    std::optional<double> last;
    if (defaults_.value(lastCheckKey)) last = double(defaults_.integer(lastCheckKey));
    const double delay = secondsUntilNextCheck(dates::secondsSinceEpoch(clock_.now()), last,
                                               settings_.checkInterval);
    scheduled_ = mainQueue_.postDelayed(delay, [this] { check(false); });
}

void UpdateService::check(bool userInitiated) {
    if (isChecking_) return;
    const std::string feed = settings_.feed.toString().toStdString();
    if (!isAllowedFeedAddress(feed, settings_.allowLoopbackHttp)) {
        Logger("app").error("Refused to read the update feed over anything but HTTPS: %{public}s",
                            feed);
        emit checked(Outcome::failed, "The update feed's address isn't secure.", userInitiated);
        return;
    }
    isChecking_ = true;
    QNetworkRequest request(settings_.feed);
    // A redirect may go on to another HTTPS address, never down to plain HTTP.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(feedTimeoutMs);
    QNetworkReply* reply = network_->get(request);
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, userInitiated] { finish(reply, userInitiated); });
}

void UpdateService::finish(QNetworkReply* reply, bool userInitiated) {
    reply->deleteLater();
    isChecking_ = false;
    defaults_.setInteger(lastCheckKey, std::int64_t(dates::secondsSinceEpoch(clock_.now())));
    scheduleNextCheck();
    if (reply->error() != QNetworkReply::NoError) {
        Logger("app").error("Update check failed: %{public}s", reply->errorString().toStdString());
        emit checked(Outcome::failed, reply->errorString(), userInitiated);
        return;
    }
    const auto release = parseReleaseFeed(reply->read(largestFeed).toStdString());
    if (!release) {
        emit checked(Outcome::failed, "The update feed couldn't be read.", userInitiated);
        return;
    }
    if (compareVersions(release->version, settings_.currentVersion) <= 0) {
        emit checked(Outcome::upToDate, {}, userInitiated);
        return;
    }
    const bool remindedBefore =
        defaults_.value(remindedKey) == UserDefaults::Value(release->version);
    if (userInitiated || !remindedBefore) {
        delegate_.willHandleShowingUpdate(*release);
        defaults_.setValue(remindedKey, release->version);
        if (remind_) remind_(*release);
        delegate_.willFinishUpdateSession();
    }
    emit checked(Outcome::newer, QString::fromStdString(release->version), userInitiated);
}

}  // namespace quillstow::shell
