#ifndef OXA_SRC_DELEGATE_INDEX_H_
#define OXA_SRC_DELEGATE_INDEX_H_

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

namespace rpc_port::AgentProxy {

// Finds the delegate for (delegate id, sequence number) in O(1) however many delegates are
// pending. Holds positions (iterators) into the owner's delegate list, which stays the one
// source of truth; the owner adds a position when it appends and removes it when it unlinks.
// Positions with the same key are kept in the order they were added, so Find answers the
// entry that a front-to-back walk of the list would reach first.
template <typename Position>
class DelegateIndex {
 public:
  void Add(int id, int seqId, Position position) {
    auto [slot, inserted] = slots.try_emplace(key(id, seqId), Slot{position, {}});
    if (!inserted) {
      slot->second.later.push_back(position);
    }
  }

  // The first position added under (id, seqId) and not removed since, or null.
  const Position *Find(int id, int seqId) const {
    auto slot = slots.find(key(id, seqId));
    return slot == slots.end() ? nullptr : &slot->second.first;
  }

  void Remove(int id, int seqId, Position position) {
    auto slot = slots.find(key(id, seqId));
    if (slot == slots.end()) {
      return;
    }
    std::vector<Position> &later = slot->second.later;
    if (slot->second.first == position) {
      if (later.empty()) {
        slots.erase(slot);
        return;
      }
      slot->second.first = later.front();
      later.erase(later.begin());
      return;
    }
    for (auto entry = later.begin(); entry != later.end(); ++entry) {
      if (*entry == position) {
        later.erase(entry);
        return;
      }
    }
  }

  void Clear() { slots.clear(); }

  // Number of distinct keys.
  size_t Size() const { return slots.size(); }

 private:
  // Keys are almost always unique (sequence numbers are process-wide), so the first position
  // lives inline and the vector stays empty and unallocated.
  struct Slot {
    Position first;
    std::vector<Position> later;
  };

  static std::uint64_t key(int id, int seqId) {
    return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(id)) << 32U) |
           static_cast<std::uint32_t>(seqId);
  }

  std::unordered_map<std::uint64_t, Slot> slots;
};

}  // namespace rpc_port::AgentProxy

#endif  // OXA_SRC_DELEGATE_INDEX_H_
