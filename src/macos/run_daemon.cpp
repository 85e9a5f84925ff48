#include "macos/run_daemon.h"

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <exception>
#include <stdexcept>

#include "common/config/config.h"
#include "common/log/log.h"
#include "macos/cpf.h"
#include "macos/hook_manager.h"
#include "macos/rights_manager.h"
#include "macos/uninstall_watcher.h"

namespace utils {

// The one request to stop of the process; never taken back. Written by the signal handler and by
// other threads, read by the quit timer on the main thread.
static std::atomic<bool> _should_quit{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

}  // namespace utils

namespace {

// Never 0, also for a stop that was asked for: the launcher starts the daemon again after this code
// as after EX_NOPERM, and would take 0 for a daemon that has nothing left to do.
constexpr int exit_stopped = 1;

constexpr CFTimeInterval first_quit_check = 0.1;
constexpr CFTimeInterval quit_check_interval = 0.5;
constexpr std::chrono::seconds permission_check_period{1};

constexpr int ending_signals[] = {SIGTERM, SIGINT, SIGHUP};

// Bit n: signal n has come and is not logged yet.
std::atomic<unsigned> g_noted_signals{0};
static_assert(std::atomic<unsigned>::is_always_lock_free, "a signal handler writes it");

cpf_t<CFRunLoopTimerRef> g_quit_timer;

// Only notes the signal: the logger takes locks and memory, and a signal that interrupts a thread
// in the middle of logging would wait for itself for ever. The main thread logs each kind once,
// before it stops; one that comes after "Daemon stopped" has nothing left to say.
void handle_signal(int signal_number) {
    switch (signal_number) {
        case SIGHUP:
        case SIGINT:
        case SIGTERM:
            g_noted_signals.fetch_or(1U << static_cast<unsigned>(signal_number));
            utils::_should_quit = true;
            break;
        default:
            break;
    }
}

void log_noted_signals() {
    const unsigned noted = g_noted_signals.exchange(0);
    for (const int signal_number : ending_signals) {
        if ((noted & (1U << static_cast<unsigned>(signal_number))) != 0) {
            QLX_LOG_ERROR("Ending on signal {}", signal_number);
        }
    }
}

void install_signal_handlers() {
    struct sigaction action {};
    action.sa_handler = handle_signal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal_number : ending_signals) {
        sigaction(signal_number, &action, nullptr);
    }
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    sigaction(SIGPIPE, &ignore, nullptr);
}

void quit_timer_cb(CFRunLoopTimerRef, void*) noexcept {
    if (utils::_should_quit) {
        log_noted_signals();
        CFRunLoopStop(CFRunLoopGetMain());
    }
}

// Looks from the main run loop whether the end is asked for. A timer, because neither a signal
// handler nor the threads that ask can stop the loop and be sure that it is running yet.
class quit_timer_t {
  public:
    quit_timer_t() {
        CFRunLoopTimerContext context{};
        g_quit_timer = cpf_t<CFRunLoopTimerRef>::adopt(
            CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + first_quit_check,
                                 quit_check_interval, 0, 0, quit_timer_cb, &context));
        if (!g_quit_timer) {
            // Nothing could ever stop the daemon.
            throw std::runtime_error("CFRunLoopTimerCreate failed");
        }
        CFRunLoopAddTimer(CFRunLoopGetMain(), g_quit_timer.get(), kCFRunLoopCommonModes);
    }
    quit_timer_t(const quit_timer_t&) = delete;
    quit_timer_t& operator=(const quit_timer_t&) = delete;
    ~quit_timer_t() { remove(); }

    void remove() {
        if (g_quit_timer) {
            CFRunLoopTimerInvalidate(g_quit_timer.get());
            g_quit_timer.reset();
        }
    }
};

// On the uninstall watcher's thread; also when that watcher is destroyed, so that this line stands
// near the end of the log of every stop.
void on_uninstall() {
    QLX_LOG_INFO("Uninstall quit");
    utils::_should_quit = true;
}

// On the permission guard's thread. Where another process keeps the rights file's folder locked
// this takes some seconds, and so does a stop that is asked for meanwhile, which waits for that
// thread.
void on_permission_lost() {
    const bool accessibility = check_accessibility();
    const bool input_monitoring = check_input_monitoring();
    write_rights_to_file(accessibility, input_monitoring);
    QLX_LOG_ERROR("Accessibility permission LOST — shutting down and exiting.");
    utils::_should_quit = true;
}

// Tells the front application and the log what the user has granted. False when something is
// missing. A grant takes effect for a process that starts after it, so nobody waits for one here.
bool permissions_granted() {
    if (!check_input_monitoring()) {
        write_rights_to_file(AXIsProcessTrusted() != 0, false);
        QLX_LOG_WARNING(
            "Input Monitoring not granted. Exiting so the launcher can relaunch after user grants "
            "it.");
        return false;
    }
    QLX_LOG_INFO("Input Monitoring granted.");
    if (AXIsProcessTrusted() == 0) {
        write_rights_to_file(false, true);
        QLX_LOG_INFO("Waiting for Accessibility permission... exit to relaunch");
        return false;
    }
    write_rights_to_file(true, true);
    QLX_LOG_INFO("All required permissions granted, starting daemon.");
    return true;
}

int run() {
    // A mask that takes the user's own rights away would lock the next start out of the log, and
    // the front application out of the rights file.
    umask(umask(0) & ~static_cast<mode_t>(S_IRWXU));
    utils::init_log("QlxDaemon", utils::sink_e::file);
    config_t::instance();
    const uninstall_watcher_t uninstall_watcher(on_uninstall);
    if (!permissions_granted()) {
        return EX_NOPERM;
    }
    quit_timer_t quit_timer;
    const permission_guard_t permission_guard(permission_check_period, on_permission_lost);
    try {
        const hook_manager_t hook_manager;
        install_signal_handlers();
        CFRunLoopRun();
    } catch (const std::exception& error) {
        QLX_LOG_ERROR("Error creating hook manager {}", error.what());
    }
    // The order of stopping: the hook manager with its taps, worker and HID manager (above, at the
    // end of its block, while the run loop can still drain it), the quit timer, the permission
    // guard and last the uninstall watcher, which has been there longest. Both of these may still
    // log and ask for the stop that is under way. The settings and the log outlive them: they end
    // with the process.
    quit_timer.remove();
    log_noted_signals();
    QLX_LOG_INFO("Daemon stopped");
    return exit_stopped;
}

}  // namespace

int run_daemon() {
    try {
        return run();
    } catch (const std::exception& error) {
        // A launcher throws standard error away and starts the daemon again for ever: its user
        // looks for the reason in the log. Where the log is the reason, nobody hears this.
        QLX_LOG_ERROR("Cannot start: {}", error.what());
        throw;
    }
}
