#pragma once
// For tests: a disk in memory that keeps every write and every flush in the order in which the file system made them, and
// that can become what it would be after a power cut: what was flushed is there, of the rest all, nothing or some.
//
// The disk is the only file of a file system that a process here serves, with a loop device over it: nothing between the
// file system and the record keeps writes back.
#include <linux/fuse.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/uio.h>

#include <cerrno>
#include <random>

#include "tests/privileged/tool/Volumes.h"

namespace tests::tool {

class RecordedDisk {
 public:
  // `image` holds the file system, `where` is an empty folder for the disk's own.
  RecordedDisk(const fs::path& image, const fs::path& where) : _where(where) {
    _fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const auto options = "fd=" + std::to_string(_fuse) + ",rootmode=40000,user_id=0,group_id=0";
    _isMounted = _fuse >= 0 && ::mount("test", where.c_str(), "fuse", 0, options.c_str()) == 0;
    if (_isMounted) startServer(image);
    if (_fuse >= 0) ::close(_fuse);
  }
  ~RecordedDisk() {
    if (!_isMounted) return;
    ::umount2(_where.c_str(), MNT_DETACH);
    ::close(_control);
    ::waitpid(_server, nullptr, 0);
  }
  RecordedDisk(const RecordedDisk&) = delete;
  RecordedDisk& operator=(const RecordedDisk&) = delete;

  [[nodiscard]] bool isUsable() const { return _isMounted; }
  [[nodiscard]] fs::path file() const { return _where / "disk"; }

  // From now on writes are recorded; what the disk holds now is where every cut starts from.
  void startRecord() { ask({.what = Order::startRecord}); }
  [[nodiscard]] std::size_t recorded() { return ask({.what = Order::count}); }
  void stopRecord() { ask({.what = Order::stopRecord}); }
  // The share of unflushed writes that survives a cut.
  enum class Unflushed { none, some, all };
  // The disk as it would be if the power had gone after `events`. False when this disk equals the one that `none` gives.
  bool cutAfter(std::size_t events, Unflushed unflushed) {
    return ask({.what = Order::cut, .events = events, .unflushed = unflushed}) != 0;
  }

 private:
  struct Order {
    enum { startRecord, stopRecord, count, cut } what;
    std::size_t events = 0;
    Unflushed unflushed = Unflushed::none;
  };
  std::size_t ask(const Order& order) const {
    std::size_t answer = 0;
    EXPECT_EQ(::send(_control, &order, sizeof order, MSG_NOSIGNAL), ssize_t{sizeof order});
    EXPECT_EQ(::recv(_control, &answer, sizeof answer, MSG_WAITALL), ssize_t{sizeof answer});
    return answer;
  }
  // A process with a mount name space of its own: when the test is killed, the file systems over the disk are unmounted
  // while it still serves, and not waiting for it.
  void startServer(const fs::path& image) {
    int ends[2];
    _isMounted = ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0;
    if (!_isMounted) return;
    _server = ::fork();
    if (_server == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::close(ends[0]);
      if (::unshare(CLONE_NEWNS) == 0) DiskServer(image, _fuse, ends[1]).serve();
      ::_exit(0);
    }
    ::close(ends[1]);
    _control = ends[0];
  }

  class DiskServer {
   public:
    DiskServer(const fs::path& image, int fuse, int control) : _fuse(fuse), _control(control) {
      _bytes = fs::file_size(image);
      _file = ::open(image.c_str(), O_RDWR | O_CLOEXEC);
      map();
    }
    void serve() {
      std::vector<char> request(maximumWrite + 4096);
      for (;;) {
        std::array<pollfd, 2> waiting{{{_fuse, POLLIN, 0}, {_control, POLLIN, 0}}};
        if (::poll(waiting.data(), waiting.size(), -1) < 0) continue;
        if (waiting[1].revents != 0 && !obey()) return;
        if (waiting[0].revents == 0) continue;
        const auto got = ::read(_fuse, request.data(), request.size());
        if (got < 0 && (errno == EINTR || errno == ENOENT || errno == EAGAIN)) continue;
        if (got < 0) _fuse = -1;  // unmounted
        if (got >= static_cast<ssize_t>(sizeof(fuse_in_header)))
          answer(*reinterpret_cast<const fuse_in_header*>(request.data()), request.data() + sizeof(fuse_in_header));
      }
    }

   private:
    bool obey() {
      Order order{};
      if (::recv(_control, &order, sizeof order, MSG_WAITALL) != ssize_t{sizeof order}) return false;
      std::size_t answer = 1;
      if (order.what == Order::startRecord) startRecord();
      if (order.what == Order::stopRecord) _isRecording = false;
      if (order.what == Order::count) answer = _events.size();
      if (order.what == Order::cut) answer = cutAfter(order.events, order.unflushed) ? 1 : 0;
      return ::send(_control, &answer, sizeof answer, MSG_NOSIGNAL) == ssize_t{sizeof answer};
    }
    void startRecord() {
      if (::pwrite(_file, _data, _bytes, 0) != static_cast<ssize_t>(_bytes)) ::_exit(1);
      _events.clear();
      _isRecording = true;
    }
    bool cutAfter(std::size_t events, Unflushed unflushed) {
      std::size_t flushed = events;
      while (flushed > 0 && !_events[flushed - 1].isFlush) --flushed;
      if (flushed == events && unflushed != Unflushed::none) return false;
      ::munmap(_data, _bytes);
      map();
      for (std::size_t i = 0; i < events; ++i) {
        const auto& event = _events[i];
        const bool survives =
            i < flushed || unflushed == Unflushed::all || (unflushed == Unflushed::some && _random() % 2 == 0);
        if (!event.isFlush && survives) std::memcpy(_data + event.offset, event.bytes.data(), event.bytes.size());
      }
      return true;
    }

    struct Event {
      bool isFlush = false;
      std::uint64_t offset = 0;
      std::vector<char> bytes;
    };
    static constexpr std::uint64_t diskNode = 2;
    static constexpr std::uint32_t maximumWrite = 1U << 17U;

    // A copy of the image that costs what is changed in it.
    void map() { _data = static_cast<char*>(::mmap(nullptr, _bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE, _file, 0)); }
    void reply(const fuse_in_header& request, int error, const void* body = nullptr, std::size_t length = 0) const {
      fuse_out_header header{};
      header.len = static_cast<std::uint32_t>(sizeof header + length);
      header.error = -error;
      header.unique = request.unique;
      const std::array<iovec, 2> parts{{{&header, sizeof header}, {const_cast<void*>(body), length}}};
      if (::writev(_fuse, parts.data(), body == nullptr ? 1 : 2) < 0) return;  // the request was given up
    }
    template <typename Body>
    void reply(const fuse_in_header& request, const Body& body) const {
      reply(request, 0, &body, sizeof body);
    }
    [[nodiscard]] fuse_attr attributesOf(std::uint64_t node) const {
      fuse_attr attributes{};
      attributes.ino = node;
      attributes.mode = node == diskNode ? S_IFREG | 0600 : S_IFDIR | 0700;
      attributes.size = node == diskNode ? _bytes : 0;
      attributes.nlink = 1;
      attributes.blksize = 4096;
      return attributes;
    }
    void answer(const fuse_in_header& request, const char* body) {
      switch (request.opcode) {
        case FUSE_INIT: {
          fuse_init_out out{};
          out.major = FUSE_KERNEL_VERSION;
          out.minor = 31;
          out.max_write = maximumWrite;
          out.flags = FUSE_BIG_WRITES | FUSE_MAX_PAGES;
          out.max_pages = maximumWrite / 4096;
          return reply(request, out);
        }
        case FUSE_LOOKUP: {
          if (std::strcmp(body, "disk") != 0) return reply(request, ENOENT);
          fuse_entry_out out{};
          out.nodeid = diskNode;
          out.attr = attributesOf(diskNode);
          out.entry_valid = out.attr_valid = 3600;
          return reply(request, out);
        }
        case FUSE_GETATTR:
        case FUSE_SETATTR: {
          fuse_attr_out out{};
          out.attr = attributesOf(request.nodeid);
          out.attr_valid = 3600;
          return reply(request, out);
        }
        case FUSE_OPEN: {
          fuse_open_out out{};
          out.open_flags = FOPEN_DIRECT_IO;
          return reply(request, out);
        }
        case FUSE_READ: {
          const auto& in = *reinterpret_cast<const fuse_read_in*>(body);
          const auto length = in.offset >= _bytes ? 0 : std::min<std::uint64_t>(in.size, _bytes - in.offset);
          return reply(request, 0, _data + in.offset, length);
        }
        case FUSE_WRITE:
          return write(request, body);
        case FUSE_FSYNC: {
          if (_isRecording) _events.push_back({.isFlush = true, .offset = 0, .bytes = {}});
          return reply(request, 0);
        }
        case FUSE_FLUSH:
        case FUSE_RELEASE:
          return reply(request, 0);
        case FUSE_FORGET:
        case FUSE_BATCH_FORGET:
        case FUSE_INTERRUPT:
          return;
        default:
          return reply(request, ENOSYS);
      }
    }
    void write(const fuse_in_header& request, const char* body) {
      const auto& in = *reinterpret_cast<const fuse_write_in*>(body);
      const char* bytes = body + sizeof in;
      if (in.offset + in.size > _bytes) return reply(request, ENOSPC);
      {
        std::memcpy(_data + in.offset, bytes, in.size);
        if (_isRecording) _events.push_back({.isFlush = false, .offset = in.offset, .bytes = {bytes, bytes + in.size}});
      }
      fuse_write_out out{};
      out.size = in.size;
      reply(request, out);
    }

    int _fuse;
    int _control;
    std::uint64_t _bytes = 0;
    int _file = -1;
    char* _data = nullptr;
    std::vector<Event> _events;
    bool _isRecording = false;
    std::mt19937 _random{1};
  };

  fs::path _where;
  int _fuse = -1;
  bool _isMounted = false;
  int _control = -1;
  pid_t _server = -1;
};

}  // namespace tests::tool
