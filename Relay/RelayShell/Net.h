#pragma once

#include "Base/Bytes.h"

#include <boost/asio/basic_signal_set.hpp>
#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <chrono>

/// Asio's types with a concrete executor: Asio's default, which can hold any executor, costs a tenth of the
/// processor time of a relayed pack.
namespace Tcp {

using Context = boost::asio::io_context;
using Executor = Context::executor_type;
using Protocol = boost::asio::ip::tcp;
using Socket = boost::asio::basic_stream_socket<Protocol, Executor>;
using Acceptor = boost::asio::basic_socket_acceptor<Protocol, Executor>;
using Timer = boost::asio::basic_waitable_timer<std::chrono::steady_clock,
                                                boost::asio::wait_traits<std::chrono::steady_clock>, Executor>;
using Signals = boost::asio::basic_signal_set<Executor>;
using Error = boost::system::error_code;

}  // namespace Tcp
