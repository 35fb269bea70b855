#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>

namespace velto {

/// An asynchronous operation: a coroutine that starts when awaited or spawned, and that runs on the executor
/// it was spawned on. Take parameters by value: the frame outlives the caller's expressions.
template <typename T = void>
using Task = asio::awaitable<T>;

using Executor = asio::any_io_executor;

} // namespace velto
