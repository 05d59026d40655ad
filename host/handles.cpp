#include "host/handles.h"

#include <algorithm>
#include <stdexcept>

namespace cinebar_simhost {

HandleStore::~HandleStore() = default;

void HandleStore::Point(Block& block) {
  // A zero-size block still gets a distinct, valid address.
  if (block.bytes.capacity() == 0) block.bytes.reserve(1);
  block.master = block.bytes.data();
}

const HandleStore::Block* HandleStore::Find(PF_Handle handle) const {
  const auto it = blocks_.find(handle);
  return it == blocks_.end() || it->second->disposed ? nullptr : it->second.get();
}

HandleStore::Block* HandleStore::Find(PF_Handle handle) {
  return const_cast<Block*>(static_cast<const HandleStore*>(this)->Find(handle));
}

PF_Handle HandleStore::New(A_HandleSize size) {
  if (size > kMaxHandleSize) return nullptr;
  auto block = std::make_unique<Block>();
  block->bytes.assign(static_cast<std::size_t>(size), kFreshHandleByte);
  Point(*block);
  PF_Handle handle = &block->master;
  blocks_.emplace(handle, std::move(block));
  return handle;
}

PF_Handle HandleStore::NewWithoutBlock() {
  PF_Handle handle = New(0);
  *handle = nullptr;
  return handle;
}

namespace {
std::string Unknown(const char* what, PF_Handle handle, bool disposed) {
  return std::string(what) + " of " +
         (disposed ? "a disposed handle"
          : handle ? "an unknown handle"
                   : "a null handle");
}
}  // namespace

bool HandleStore::IsDisposed(PF_Handle handle) const {
  const auto it = blocks_.find(handle);
  return it != blocks_.end() && it->second->disposed;
}

std::string HandleStore::Lock(PF_Handle handle, void** block) {
  *block = nullptr;
  if (handle == nullptr) return ++null_locks_, std::string{};
  Block* b = Find(handle);
  if (b == nullptr) return Unknown("lock", handle, IsDisposed(handle));
  ++b->locks;
  *block = b->master;
  return {};
}

std::string HandleStore::Unlock(PF_Handle handle) {
  Block* b = Find(handle);
  // By block address: a null one stands for the block of a lock the host refused.
  for (auto& [h, candidate] : blocks_) {
    const bool by_address = handle == nullptr
                                ? candidate->refused_locks > 0
                                : candidate->locks > 0 && candidate->master == static_cast<void*>(handle);
    if (b == nullptr && !candidate->disposed && by_address) b = candidate.get();
  }
  if (b == nullptr && handle == nullptr && null_locks_ > 0) return --null_locks_, std::string{};
  if (b == nullptr) return Unknown("unlock", handle, IsDisposed(handle));
  if (b->locks == 0 && b->refused_locks > 0) {
    --b->refused_locks;
    return {};
  }
  if (b->locks == 0) return "unlock of a handle that is not locked";
  --b->locks;
  return {};
}

void HandleStore::RefusedLock(PF_Handle handle) {
  if (handle == nullptr) {
    ++null_locks_;  // a refused lock of no handle is unlocked like an answered one
  } else if (Block* b = Find(handle)) {
    ++b->refused_locks;
  }
}

std::string HandleStore::Dispose(PF_Handle handle) {
  Block* b = Find(handle);
  if (b == nullptr) return Unknown("dispose", handle, IsDisposed(handle));
  std::fill(b->bytes.begin(), b->bytes.end(), kDisposedHandleByte);
  b->master = b->bytes.data();
  b->disposed = true;
  return {};
}

void HandleStore::Release(PF_Handle handle) {
  if (Block* b = Find(handle)) b->locks = 0;
  Dispose(handle);
}

std::vector<PF_Handle> HandleStore::TakeQuarantineBreaches() {
  std::vector<PF_Handle> breached;
  for (auto& [handle, b] : blocks_) {
    const bool poisoned = std::all_of(b->bytes.begin(), b->bytes.end(),
                                      [](std::uint8_t byte) { return byte == kDisposedHandleByte; });
    if (!b->disposed || (poisoned && b->master == b->bytes.data())) continue;
    breached.push_back(handle);
    std::fill(b->bytes.begin(), b->bytes.end(), kDisposedHandleByte);
    b->master = b->bytes.data();
  }
  return breached;
}

std::string HandleStore::Size(PF_Handle handle, A_HandleSize* size) const {
  *size = 0;
  const Block* b = Find(handle);
  if (b == nullptr) return Unknown("size query", handle, IsDisposed(handle));
  *size = b->bytes.size();
  return {};
}

std::string HandleStore::Resize(PF_Handle handle, A_HandleSize size) {
  Block* b = Find(handle);
  if (b == nullptr) return Unknown("resize", handle, IsDisposed(handle));
  if (size > kMaxHandleSize) return "resize beyond the host's largest block";
  if (b->locks > 0) return "resize of a locked handle";
  b->bytes.resize(static_cast<std::size_t>(size), kFreshHandleByte);
  Point(*b);
  return {};
}

std::size_t HandleStore::LiveCount() const { return Live().size(); }

std::vector<PF_Handle> HandleStore::Live() const {
  std::vector<PF_Handle> live;
  for (const auto& entry : blocks_) {
    if (!entry.second->disposed) live.push_back(entry.first);
  }
  return live;
}

std::vector<std::uint8_t> HandleStore::Bytes(PF_Handle handle) const {
  const Block* b = Find(handle);
  if (b == nullptr)
    throw std::invalid_argument("HandleStore::Bytes: " + Unknown("read", handle, IsDisposed(handle)));
  return b->bytes;
}

void HandleStore::SetBytes(PF_Handle handle, const std::vector<std::uint8_t>& bytes) {
  Block* b = Find(handle);
  if (b == nullptr)
    throw std::invalid_argument("HandleStore::SetBytes: " + Unknown("write", handle, IsDisposed(handle)));
  b->bytes = bytes;
  Point(*b);
}

PF_Handle HandleStore::Adopt(const std::vector<std::uint8_t>& bytes) {
  PF_Handle handle = New(bytes.size());
  if (handle == nullptr) throw std::invalid_argument("HandleStore::Adopt: block too large");
  SetBytes(handle, bytes);
  return handle;
}

}  // namespace cinebar_simhost
