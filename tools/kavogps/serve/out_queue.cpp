#include "serve/out_queue.h"

namespace kavo::serve {

void OutQueue::Push(OutLine line) {
  bytes_ += line->size();
  lines_.push_back(std::move(line));
  while (bytes_ > maxBytes_ && lines_.size() > 1) {
    bytes_ -= lines_.front()->size();
    lines_.pop_front();
    ++dropped_;
  }
}

void OutQueue::TakeAll(std::vector<OutLine>* into) {
  into->assign(std::make_move_iterator(lines_.begin()), std::make_move_iterator(lines_.end()));
  lines_.clear();
  bytes_ = 0;
}

}  // namespace kavo::serve
