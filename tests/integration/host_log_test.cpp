// The log of applications whose standard error is missing, closed at the other end, or replaced.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "dlog.h"
#include "service_fixture.h"

namespace {

using LogTest = ServiceTest;

TEST_F(LogTest, WhatIsStandardErrorNoMoreIsNotWrittenTo) {
  int pipe_ends[2];
  ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC | O_NONBLOCK), 0);
  const int standard_error = dup(STDERR_FILENO);
  dup2(pipe_ends[1], STDERR_FILENO);
  errno = E2BIG;
  dlog_print(6, "TEST", "text");
  EXPECT_EQ(errno, E2BIG) << "the caller's";
  dup2(standard_error, STDERR_FILENO);
  char letter = '\0';
  EXPECT_EQ(read(pipe_ends[0], &letter, 1), -1);
  for (const int descriptor : {standard_error, pipe_ends[0], pipe_ends[1]}) close(descriptor);
}

}  // namespace
