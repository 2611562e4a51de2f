/** Telling a process from the children that it forks. */
#ifndef KORVANE_HOST_PROCESS_H_
#define KORVANE_HOST_PROCESS_H_

namespace korvane::host {

/**
 * A number that is another in a child made by fork. What a child has inherited is its parent's
 * still: connections, subscriptions and their sockets are ended by the process that made them.
 */
unsigned process_generation();

/** Made along with something that belongs to the process. */
class ProcessMark {
 public:
  bool is_ours() const { return generation_ == process_generation(); }

 private:
  unsigned generation_ = process_generation();
};

}  // namespace korvane::host

#endif  // KORVANE_HOST_PROCESS_H_
