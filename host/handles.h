// Host memory handles as the host hands them out: a PF_Handle points to a
// master pointer, which points to the block. Bytes whose contents the
// contract leaves undefined (a new block, the grown part of a resized one)
// hold kFreshHandleByte, so whether the module clears its memory shows. A
// disposed block is not freed but poisoned with kDisposedHandleByte and kept
// in quarantine, so a module that still reads it reads poison, and one that
// writes it is caught by TakeQuarantineBreaches().
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "hostapi/ae_effect.h"

namespace cinebar_simhost {

constexpr std::uint8_t kFreshHandleByte = 0xCD;
constexpr std::uint8_t kDisposedHandleByte = 0xDD;
// Larger requests are refused with a null handle, as an exhausted host would.
constexpr A_HandleSize kMaxHandleSize = A_HandleSize{1} << 28;

class HandleStore {
 public:
  HandleStore() = default;
  HandleStore(const HandleStore&) = delete;
  HandleStore& operator=(const HandleStore&) = delete;
  ~HandleStore();

  // Each operation on a handle the store does not know (never made, already
  // disposed of, or not a handle at all) changes nothing and returns a problem
  // text instead of touching the pointer; the empty text means success.
  PF_Handle New(A_HandleSize size);  // null when size > kMaxHandleSize
  PF_Handle NewWithoutBlock();       // a handle whose master pointer is null: no memory, but no error
  std::string Lock(PF_Handle handle, void** block);
  // Also accepts the address of a locked block in place of its handle, as
  // After Effects does; and one unlock (of the handle, or of the null block
  // address) after each lock the host refused. A null handle locks to no
  // block, as After Effects answers it, and is unlocked once per such lock.
  std::string Unlock(PF_Handle handle);
  std::string Dispose(PF_Handle handle);
  std::string Size(PF_Handle handle, A_HandleSize* size) const;
  std::string Resize(PF_Handle handle, A_HandleSize size);  // keeps the master pointer and the leading bytes
  void RefusedLock(PF_Handle handle);
  // The host's own end of a handle it owns (the global data): disposed whatever its locks.
  void Release(PF_Handle handle);

  bool IsLive(PF_Handle handle) const { return Find(handle) != nullptr; }
  bool IsDisposed(PF_Handle handle) const;
  std::size_t LiveCount() const;
  std::vector<PF_Handle> Live() const;
  // Disposed blocks whose poison or master pointer the module changed since; poisoned again.
  std::vector<PF_Handle> TakeQuarantineBreaches();

  // The block's bytes, as a project file would keep them. Unknown handles throw std::invalid_argument.
  std::vector<std::uint8_t> Bytes(PF_Handle handle) const;
  void SetBytes(PF_Handle handle, const std::vector<std::uint8_t>& bytes);  // resizes to fit
  PF_Handle Adopt(const std::vector<std::uint8_t>& bytes);                  // a new handle holding `bytes`

 private:
  struct Block {
    void* master = nullptr;  // the PF_Handle is the address of this field
    std::vector<std::uint8_t> bytes;
    int locks = 0;
    int refused_locks = 0;
    bool disposed = false;
  };
  const Block* Find(PF_Handle handle) const;
  Block* Find(PF_Handle handle);
  static void Point(Block& block);

  std::map<PF_Handle, std::unique_ptr<Block>> blocks_;
  int null_locks_ = 0;
};

}  // namespace cinebar_simhost
