#include "support/fake_hidapi.h"

#include <hidapi.h>

#include <cstdlib>
#include <utility>

namespace {

std::vector<fake_hidapi::interface_t> g_interfaces;
bool g_refuses_to_start = false;
std::size_t g_sessions = 0;
std::size_t g_lists = 0;

}  // namespace

namespace fake_hidapi {

void attach(std::vector<interface_t> interfaces) {
    g_interfaces = std::move(interfaces);
}

void refuse_to_start() {
    g_refuses_to_start = true;
}

std::size_t sessions_open() {
    return g_sessions;
}

std::size_t lists_open() {
    return g_lists;
}

}  // namespace fake_hidapi

// Use in the wrong order ends the test: the library does not promise to survive it.
extern "C" {

int hid_init() {
    if (g_refuses_to_start) {
        return -1;
    }
    ++g_sessions;
    return 0;
}

int hid_exit() {
    if (g_sessions == 0 || g_lists != 0) {
        std::abort();
    }
    --g_sessions;
    return 0;
}

hid_device_info* hid_enumerate(unsigned short vendor_id, unsigned short product_id) {
    if (g_sessions == 0 || vendor_id != 0 || product_id != 0) {
        std::abort();
    }
    hid_device_info* first = nullptr;
    for (auto i = g_interfaces.rbegin(); i != g_interfaces.rend(); ++i) {
        auto* info = new hid_device_info{};
        info->vendor_id = i->vendor_id;
        info->product_id = i->product_id;
        info->usage_page = i->usage_page;
        info->usage = i->usage;
        info->next = std::exchange(first, info);
    }
    g_lists += first != nullptr ? 1 : 0;
    return first;
}

void hid_free_enumeration(hid_device_info* first) {
    if (first == nullptr) {
        return;
    }
    if (g_lists == 0) {
        std::abort();
    }
    --g_lists;
    while (first != nullptr) {
        delete std::exchange(first, first->next);
    }
}

}  // extern "C"
