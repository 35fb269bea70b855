#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace velto::media {

/// Tells the kernel which files a sequential reader comes to next, so that a cold disk works while the reader
/// parses. A thread of its own runs some tens of files ahead and asks for each file's head and tail; it reads
/// nothing itself and backs off if the files are cached already. Purely a hint: no failure, no result.
class ReadAhead {
  public:
    /// Starts with the first files of `paths`, in the order in which they will be read.
    explicit ReadAhead(std::vector<std::string> paths);
    /// Stops the thread and waits for it: at most one file's hint.
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    /// The reader has come to paths[index]. Cheap; any thread.
    void reached(std::size_t index);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace velto::media
