#include "core/permissions.h"

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace simulator {
namespace {

struct permissions_t {
    std::mutex mutex;
    bool accessibility = true;
    bool input_monitoring = true;
    bool undecided = false;  // input_monitoring is not granted, and the user has not been asked
    std::condition_variable decided;
    std::size_t waiting = 0;  // for the user's answer
    std::vector<std::function<void(permission_e, bool)>> told;

    bool& of(permission_e permission) {
        return permission == permission_e::accessibility ? accessibility : input_monitoring;
    }
};

permissions_t& permissions() {
    static auto* const all = new permissions_t;  // outlives every static object of the program
    return *all;
}

void set(permission_e permission, bool now) {
    std::vector<std::function<void(permission_e, bool)>> told;
    {
        const std::lock_guard lock(permissions().mutex);
        if (permission == permission_e::input_monitoring) {
            permissions().undecided = false;
            permissions().decided.notify_all();
        }
        if (std::exchange(permissions().of(permission), now) == now) {
            return;
        }
        told = permissions().told;
    }
    for (const auto& changed : told) {
        changed(permission, now);
    }
}

}  // namespace

void grant(permission_e permission) {
    set(permission, true);
}

void revoke(permission_e permission) {
    set(permission, false);
}

bool granted(permission_e permission) {
    const std::lock_guard lock(permissions().mutex);
    return permissions().of(permission);
}

void leave_input_monitoring_undecided() {
    revoke(permission_e::input_monitoring);
    const std::lock_guard lock(permissions().mutex);
    permissions().undecided = true;
}

bool user_is_asked() {
    const std::lock_guard lock(permissions().mutex);
    return permissions().undecided && permissions().waiting > 0;
}

bool request_input_monitoring() {
    permissions_t& all = permissions();
    std::unique_lock lock(all.mutex);
    ++all.waiting;
    all.decided.wait(lock, [&all] { return !all.undecided; });
    --all.waiting;
    return all.input_monitoring;
}

void on_permission_change(std::function<void(permission_e, bool granted)> changed) {
    const std::lock_guard lock(permissions().mutex);
    permissions().told.push_back(std::move(changed));
}

}  // namespace simulator
