#include "support/fake_hidapi.h"

#include <hidapi.h>

#include <cstdlib>
#include <utility>

namespace {

std::size_t g_lists_open = 0;

// Use in the wrong order ends the test: the library does not promise to survive it.
void expect(bool in_order) {
    if (!in_order) {
        std::abort();
    }
}

}  // namespace

extern "C" {

int hid_init() {
    if (fake_hidapi::refuses_to_start) {
        return -1;
    }
    ++fake_hidapi::sessions_open;
    return 0;
}

int hid_exit() {
    expect(fake_hidapi::sessions_open > 0 && g_lists_open == 0);
    --fake_hidapi::sessions_open;
    return 0;
}

hid_device_info* hid_enumerate(unsigned short vendor_id, unsigned short product_id) {
    expect(fake_hidapi::sessions_open > 0 && vendor_id == 0 && product_id == 0);
    hid_device_info* first = nullptr;
    for (auto i = fake_hidapi::attached.rbegin(); i != fake_hidapi::attached.rend(); ++i) {
        auto* info = new hid_device_info{};
        info->vendor_id = i->vendor_id;
        info->product_id = i->product_id;
        info->usage_page = i->usage_page;
        info->usage = i->usage;
        info->next = std::exchange(first, info);
    }
    g_lists_open += first != nullptr ? 1 : 0;
    return first;
}

void hid_free_enumeration(hid_device_info* first) {
    expect(first == nullptr || g_lists_open > 0);
    g_lists_open -= first != nullptr ? 1 : 0;
    while (first != nullptr) {
        delete std::exchange(first, first->next);
    }
}

}  // extern "C"
