// The one translation unit that compiles Boost.Asio's implementation
// (BOOST_ASIO_SEPARATE_COMPILATION keeps it out of every other file).
#include <boost/asio/impl/src.hpp>
