#include "host/call_log.h"

#include <sstream>

namespace cinebar_simhost {

CallRecord& CallLog::Add(CallRecord record) {
  records_.push_back(std::move(record));
  return records_.back();
}

int CallLog::Count(HostFn fn) const {
  int n = 0;
  for (const CallRecord& r : records_) n += r.fn == fn ? 1 : 0;
  return n;
}

const CallRecord* CallLog::Last(HostFn fn) const {
  for (auto it = records_.rbegin(); it != records_.rend(); ++it) {
    if (it->fn == fn) return &*it;
  }
  return nullptr;
}

std::vector<const CallRecord*> CallLog::Named(HostFn fn) const {
  std::vector<const CallRecord*> found;
  for (const CallRecord& r : records_) {
    if (r.fn == fn) found.push_back(&r);
  }
  return found;
}

std::string RectText(const PF_Rect* rect) {
  if (rect == nullptr) return "null";
  std::ostringstream out;
  out << "{" << rect->left << "," << rect->top << "," << rect->right << "," << rect->bottom << "}";
  return out.str();
}

}  // namespace cinebar_simhost
