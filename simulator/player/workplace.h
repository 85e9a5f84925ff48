#pragma once

#include <filesystem>

namespace simulator::player {

// A folder with everything that belongs to one simulated desktop; gone with its owner unless it is
// kept. Throws where it cannot be made.
class workplace_t {
  public:
    workplace_t();
    // In a folder that is kept.
    explicit workplace_t(std::filesystem::path kept);
    ~workplace_t();
    workplace_t(const workplace_t&) = delete;
    workplace_t& operator=(const workplace_t&) = delete;

    void keep() { _keep = true; }

    std::filesystem::path home() const { return folder / "home"; }
    std::filesystem::path root() const { return folder / "disk"; }
    std::filesystem::path tools() const { return folder / "tools"; }
    std::filesystem::path report() const { return folder / "report"; }
    std::filesystem::path commands() const { return folder / "commands"; }

    std::filesystem::path folder;

  private:
    void _lay_out() const;

    bool _keep = false;
};

}  // namespace simulator::player
