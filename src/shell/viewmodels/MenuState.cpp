#include "viewmodels/MenuState.hpp"

#include "viewmodels/Texts.hpp"

namespace quillstow::shell {

namespace {

std::string detailOf(const BackupEvent& event) {
    if (event.filesAffected >= 1)
        return std::to_string(event.filesAffected) +
               (event.filesAffected == 1 ? " file" : " files");
    if (event.message && !event.message->empty()) return *event.message;
    return texts::eventLabel(event.type);
}

}  // namespace

bool asksNotificationPermission(NotificationLevel before, NotificationLevel chosen) {
    return before == NotificationLevel::nothing && chosen != NotificationLevel::nothing;
}

MenuEventLine eventLine(const BackupEvent& event, const std::string* pairName, Date now) {
    const double ago = std::chrono::duration<double>(now - event.timestamp).count();
    MenuEventLine line;
    line.title = texts::eventMark(event.type) + " " +
                 (pairName ? *pairName : std::string(texts::deletedPair)) + " — " +
                 detailOf(event) + " (" + texts::abbreviatedTimeAgo(ago) + ")";
    line.isAlarm = event.type == BackupEvent::EventType::error ||
                   event.type == BackupEvent::EventType::verificationFailed;
    return line;
}

MenuState menuState(const StatusManager& manager, Date now) {
    const ConfigStore& store = manager.configStore();
    MenuState state;
    state.settings = store.appConfig();
    for (const BackupPair& pair : store.pairs()) {
        const auto engine = manager.engines().find(pair.id);
        const auto status = engine == manager.engines().end() ? BackupStatus::Case::idle
                                                              : engine->second->status().kind();
        state.pairs.push_back(
            {pair.id, texts::menuMark(status) + "  " + pair.name, pair.isEnabled});
    }
    const auto& events = store.events();
    for (auto event = events.rbegin();
         event != events.rend() && state.recentEvents.size() < recentEventCount; ++event) {
        const std::string* name = nullptr;
        for (const BackupPair& pair : store.pairs())
            if (pair.id == event->pairId) name = &pair.name;
        state.recentEvents.push_back(eventLine(*event, name, now));
    }
    return state;
}

}  // namespace quillstow::shell
