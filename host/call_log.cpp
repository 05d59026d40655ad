#include "host/call_log.h"

#include <sstream>

namespace cinebar_simhost {

CallRecord& CallLog::Add(CallRecord record) {
  records_.push_back(std::move(record));
  return records_.back();
}

int CallLog::Count(const std::string& function) const {
  int n = 0;
  for (const CallRecord& r : records_) n += r.function == function ? 1 : 0;
  return n;
}

const CallRecord* CallLog::Last(const std::string& function) const {
  for (auto it = records_.rbegin(); it != records_.rend(); ++it) {
    if (it->function == function) return &*it;
  }
  return nullptr;
}

std::vector<const CallRecord*> CallLog::Named(const std::string& function) const {
  std::vector<const CallRecord*> found;
  for (const CallRecord& r : records_) {
    if (r.function == function) found.push_back(&r);
  }
  return found;
}

std::vector<std::string> CallLog::Functions() const {
  std::vector<std::string> names;
  for (const CallRecord& r : records_) names.push_back(r.function);
  return names;
}

std::string CallLog::ToString() const {
  std::ostringstream out;
  for (const CallRecord& r : records_) {
    out << "[" << r.command << "] " << r.function << "(" << r.args << ") -> " << r.result
        << (r.faulted ? " (injected fault)" : "") << "\n";
  }
  return out.str();
}

std::string RectText(const PF_Rect* rect) {
  if (rect == nullptr) return "null";
  std::ostringstream out;
  out << "{" << rect->left << "," << rect->top << "," << rect->right << "," << rect->bottom << "}";
  return out.str();
}

}  // namespace cinebar_simhost
