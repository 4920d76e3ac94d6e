#define FUSE_USE_VERSION 35

#include "emulator/serve_usb_device.h"

#include "platform/clock.h"

#include <fuse_lowlevel.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace langmon::emulator {

namespace {

constexpr fuse_ino_t DeviceInode = 2;
// usblp keeps the device ID in a buffer of this many bytes, one of them for
// a NUL it adds; an answer is never longer than the rest.
constexpr size_t DeviceIdBufferBytes = 1024;
constexpr unsigned GetDeviceIdNumber = 1;  // IOCNR_GET_DEVICE_ID
constexpr unsigned ReadEvents = POLLIN | POLLRDNORM;
constexpr unsigned WriteEvents = POLLOUT | POLLWRNORM;

// What stat(2) says of the device and the folder: they change never.
struct stat Attributes(fuse_ino_t inode) {
    struct stat attributes{};
    attributes.st_ino = inode;
    attributes.st_uid = ::getuid();
    attributes.st_gid = ::getgid();
    if (inode == FUSE_ROOT_ID) {
        attributes.st_mode = S_IFDIR | 0755;
        attributes.st_nlink = 2;
    } else {
        attributes.st_mode = S_IFREG | 0660;
        attributes.st_nlink = 1;
    }
    return attributes;
}

// A mount left by a process that was killed: the kernel still has it, and
// every look at it is ENOTCONN. It is taken away lazily, by umount2 where
// the process may, and by fusermount3 where only that may.
bool RemoveDeadMount(const std::string& directory) {
    if (::umount2(directory.c_str(), MNT_DETACH) == 0) return true;
    const char* argv[] = {"fusermount3", "-u", "-z", "-q", directory.c_str(), nullptr};
    pid_t pid = -1;
    int status = -1;
    if (::posix_spawnp(&pid, "fusermount3", nullptr, nullptr, const_cast<char**>(argv), environ) != 0) return false;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Makes `directory` ready to be mounted on, saying in `made` whether it
// had to be made; empty, or what is in the way.
std::string PrepareMountPoint(const std::string& directory, bool* made) {
    // statfs(2) always goes to the server, where stat(2) may be answered
    // from what the kernel still remembers.
    struct statfs filesystem{};
    if (::statfs(directory.c_str(), &filesystem) != 0 && errno == ENOTCONN) {
        if (!RemoveDeadMount(directory)) return "a dead mount of an earlier run is in the way and could not be removed";
    }
    std::error_code error;
    *made = std::filesystem::create_directories(directory, error);
    if (error) return error.message();
    struct stat here{};
    if (::stat(directory.c_str(), &here) != 0) return std::strerror(errno);
    if (!S_ISDIR(here.st_mode)) return "not a directory";
    // A mount point (or the root, its own parent) is never mounted over,
    // nor a folder with files that the mount would hide.
    struct stat parent{};
    if (::stat((directory + "/..").c_str(), &parent) != 0) return std::strerror(errno);
    if (parent.st_dev != here.st_dev || parent.st_ino == here.st_ino) {
        return "a mount point (another langmon emulate's device?): give the device a folder of its own";
    }
    if (!std::filesystem::is_empty(directory, error) || error) return "not empty: give the device a folder of its own";
    return "";
}

}  // namespace

// The low-level FUSE operations: libfuse calls them from
// fuse_session_process_buf in Serve, on the loop's thread.
struct UsbDeviceOps {
    static UsbDevice& Device(fuse_req_t request) { return *static_cast<UsbDevice*>(fuse_req_userdata(request)); }

    static void Lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
        if (parent != FUSE_ROOT_ID || std::strcmp(name, UsbDeviceName) != 0) {
            fuse_reply_err(request, ENOENT);
            return;
        }
        fuse_entry_param entry{};
        entry.ino = DeviceInode;
        entry.attr = Attributes(DeviceInode);
        entry.attr_timeout = 60;
        entry.entry_timeout = 60;
        fuse_reply_entry(request, &entry);
    }

    static void GetAttributes(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
        const struct stat attributes = Attributes(inode);
        fuse_reply_attr(request, &attributes, 60);
    }

    // A shell's `>` truncates: a device has nothing to cut.
    static void SetAttributes(fuse_req_t request, fuse_ino_t inode, struct stat*, int, fuse_file_info*) {
        GetAttributes(request, inode, nullptr);
    }

    static void ReadDirectory(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, fuse_file_info*) {
        if (inode != FUSE_ROOT_ID) {
            fuse_reply_err(request, ENOTDIR);
            return;
        }
        const struct {
            const char* name;
            fuse_ino_t inode;
        } entries[] = {{".", FUSE_ROOT_ID}, {"..", FUSE_ROOT_ID}, {UsbDeviceName, DeviceInode}};
        std::string listing(size, '\0');
        size_t used = 0;
        for (off_t at = offset; at < static_cast<off_t>(std::size(entries)); ++at) {
            const struct stat attributes = Attributes(entries[at].inode);
            const size_t needed = fuse_add_direntry(request, listing.data() + used, size - used, entries[at].name,
                                                    &attributes, at + 1);
            if (needed > size - used) break;
            used += needed;
        }
        fuse_reply_buf(request, listing.data(), used);
    }

    static void Open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* file) {
        UsbDevice& device = Device(request);
        if (inode != DeviceInode) {
            fuse_reply_err(request, EISDIR);
            return;
        }
        // usblp lets one program have the printer at a time.
        if (device.opens_ != 0) {
            fuse_reply_err(request, EBUSY);
            return;
        }
        file->direct_io = 1;
        file->nonseekable = 1;
        if (fuse_reply_open(request, file) == 0) ++device.opens_;
    }

    static void Release(fuse_req_t request, fuse_ino_t, fuse_file_info*) {
        UsbDevice& device = Device(request);
        if (device.opens_ > 0) --device.opens_;
        fuse_reply_err(request, 0);
    }

    static void Read(fuse_req_t request, fuse_ino_t, size_t size, off_t, fuse_file_info* file) {
        Device(request).Read(request, size, (file->flags & O_NONBLOCK) != 0);
    }

    static void Write(fuse_req_t request, fuse_ino_t, const char* bytes, size_t size, off_t, fuse_file_info* file) {
        Device(request).Write(request, {bytes, size}, (file->flags & O_NONBLOCK) != 0);
    }

    static void Control(fuse_req_t request, fuse_ino_t, unsigned int command, void*, fuse_file_info*, unsigned,
                        const void*, size_t, size_t outSize) {
        Device(request).AnswerDeviceId(request, command, outSize);
    }

    static void Poll(fuse_req_t request, fuse_ino_t, fuse_file_info*, fuse_pollhandle* handle) {
        UsbDevice& device = Device(request);
        if (handle != nullptr) device.polls_.push_back(handle);
        device.polledEvents_ = device.ReadyEvents();
        fuse_reply_poll(request, device.polledEvents_);
    }

    static fuse_lowlevel_ops Table() {
        fuse_lowlevel_ops ops{};
        ops.lookup = Lookup;
        ops.getattr = GetAttributes;
        ops.setattr = SetAttributes;
        ops.readdir = ReadDirectory;
        ops.open = Open;
        ops.release = Release;
        ops.read = Read;
        ops.write = Write;
        ops.ioctl = Control;
        ops.poll = Poll;
        return ops;
    }
};

UsbDevice::UsbDevice(Printer& printer, const std::string& directory) : printer_(printer), stream_(printer) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(directory, error).lexically_normal();
    directory_ = absolute.string();
    if (directory_.size() > 1 && directory_.back() == '/') directory_.pop_back();
    path_ = directory_ + "/" + UsbDeviceName;
    const std::string what = "--usb-device " + directory + ": ";
    if (const std::string problem = PrepareMountPoint(directory_, &madeDirectory_); !problem.empty()) {
        problem_ = what + problem;
        return;
    }
    // Without /dev/fuse, or without the right to use it, nothing can be
    // mounted; said here in a word rather than by libfuse's attempts.
    if (const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC); fuse < 0) {
        problem_ = what + "/dev/fuse: " + std::strerror(errno);
        return;
    } else {
        ::close(fuse);
    }
    const char* words[] = {"langmon", "-o", "fsname=langmon-usb,subtype=usblp"};
    fuse_args arguments = FUSE_ARGS_INIT(3, const_cast<char**>(words));
    const fuse_lowlevel_ops ops = UsbDeviceOps::Table();
    session_ = fuse_session_new(&arguments, &ops, sizeof ops, this);
    fuse_opt_free_args(&arguments);  // what reading the options made of them
    if (session_ == nullptr) {
        problem_ = what + "FUSE would not start a session";
        return;
    }
    if (fuse_session_mount(session_, directory_.c_str()) != 0) {
        problem_ = what + "could not be mounted (mounting needs the right to mount, or fusermount3)";
        return;
    }
    mounted_ = true;
    fd_ = fuse_session_fd(session_);
    // The loop never waits in libfuse: a read of the descriptor with no
    // request returns EAGAIN.
    ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) | O_NONBLOCK);
}

UsbDevice::~UsbDevice() { Unmount(); }

void UsbDevice::Unmount() {
    if (session_ != nullptr) EndSession();
    // A folder made for the device goes with it; the lazy unmount has
    // already taken the mount off it.
    if (madeDirectory_) ::rmdir(directory_.c_str());
    madeDirectory_ = false;
}

void UsbDevice::EndSession() {
    // Whoever waits is told the device went, as an unplugged printer's
    // host is.
    for (std::deque<Waiting>* waiting : {&writes_, &reads_}) {
        for (const Waiting& request : *waiting) fuse_reply_err(request.request, ENODEV);
        waiting->clear();
    }
    for (fuse_pollhandle* handle : polls_) fuse_pollhandle_destroy(handle);
    polls_.clear();
    if (mounted_) fuse_session_unmount(session_);
    mounted_ = false;
    fuse_session_destroy(session_);
    session_ = nullptr;
    fd_ = -1;
    std::free(buffer_);
    buffer_ = nullptr;
}

void UsbDevice::AddWaits(std::vector<pollfd>& waits) const {
    if (fd_ >= 0) waits.push_back({fd_, POLLIN, 0});
}

void UsbDevice::Serve() {
    if (session_ == nullptr || fd_ < 0) return;
    // Every request that came, each answered now or put to wait.
    for (;;) {
        fuse_buf request{};
        request.mem = buffer_;
        const int got = fuse_session_receive_buf(session_, &request);
        buffer_ = request.mem;
        if (got == -EINTR) continue;
        if (got <= 0) break;  // none waiting (-EAGAIN), or unmounted from outside
        fuse_session_process_buf(session_, &request);
    }
    if (fuse_session_exited(session_)) {
        // Unmounted from outside: nothing more comes.
        mounted_ = false;
        fd_ = -1;
        return;
    }
    const uint32_t now = GetTickCount();
    stream_.TakePending();
    FinishWaiting(now);
    stream_.EndIfQuiet(now);
    NotifyPolls();
}

void UsbDevice::Write(fuse_req* request, std::string_view bytes, bool nonBlocking) {
    // Bytes go to the printer in the order they were written.
    if (!writes_.empty() || !stream_.WantsInput()) {
        if (nonBlocking) {
            fuse_reply_err(request, EAGAIN);
            return;
        }
        writes_.push_back({request, std::string(bytes), 0, false});
        return;
    }
    stream_.Received(bytes, GetTickCount());
    // A non-blocking write is done once handed over, as usblp's is once
    // submitted; a blocking one once the printer has taken it all.
    if (nonBlocking || stream_.WantsInput()) {
        fuse_reply_write(request, bytes.size());
        return;
    }
    writes_.push_back({request, std::string(bytes), 0, true});
}

void UsbDevice::Read(fuse_req* request, size_t size, bool nonBlocking) {
    if (reads_.empty()) {
        const std::string& outgoing = stream_.Outgoing();
        if (!outgoing.empty()) {
            const size_t n = std::min(size, outgoing.size());
            fuse_reply_buf(request, outgoing.data(), n);
            stream_.Sent(n);
            return;
        }
    }
    if (nonBlocking) {
        fuse_reply_err(request, EAGAIN);
        return;
    }
    reads_.push_back({request, "", size, false});
}

void UsbDevice::FinishWaiting(uint32_t now) {
    // A waiting call that a signal interrupted (a host's Ctrl-C) ends now:
    // with EINTR, or with its count when the printer already has its bytes.
    // Asked here rather than in libfuse's interrupt callback, which may run
    // inside the call that registers it and must not answer there.
    for (std::deque<Waiting>* waiting : {&writes_, &reads_}) {
        std::erase_if(*waiting, [](const Waiting& call) {
            if (!fuse_req_interrupted(call.request)) return false;
            if (call.taken) {
                fuse_reply_write(call.request, call.bytes.size());
            } else {
                fuse_reply_err(call.request, EINTR);
            }
            return true;
        });
    }
    while (!writes_.empty()) {
        Waiting& write = writes_.front();
        if (!write.taken) {
            if (!stream_.WantsInput()) break;
            stream_.Received(write.bytes, now);
            write.taken = true;
        }
        if (!stream_.WantsInput()) break;
        fuse_reply_write(write.request, write.bytes.size());
        writes_.pop_front();
    }
    while (!reads_.empty()) {
        const std::string& outgoing = stream_.Outgoing();
        if (outgoing.empty()) break;
        const size_t n = std::min(reads_.front().size, outgoing.size());
        fuse_reply_buf(reads_.front().request, outgoing.data(), n);
        stream_.Sent(n);
        reads_.pop_front();
    }
}

void UsbDevice::AnswerDeviceId(fuse_req* request, unsigned command, size_t outSize) {
    if (_IOC_TYPE(command) != 'P') {
        fuse_reply_err(request, EINVAL);
        return;
    }
    if (_IOC_NR(command) != GetDeviceIdNumber) {
        fuse_reply_err(request, ENOTTY);
        return;
    }
    if (_IOC_DIR(command) != _IOC_READ) {
        fuse_reply_err(request, EINVAL);
        return;
    }
    const std::optional<std::string> id = printer_.DeviceId();
    if (!id) {
        fuse_reply_err(request, EIO);  // the printer did not answer the request
        return;
    }
    // The printer's answer: its length, counting the two bytes that say it,
    // then the text. usblp keeps at most one byte less than its buffer and
    // hands over as much of that as the request's size asks for.
    const size_t whole = id->size() + 2;
    std::string answer;
    answer.push_back(static_cast<char>((whole >> 8) & 0xFF));
    answer.push_back(static_cast<char>(whole & 0xFF));
    answer += *id;
    const size_t kept = std::min({answer.size(), DeviceIdBufferBytes - 1, static_cast<size_t>(_IOC_SIZE(command)),
                                  outSize});
    fuse_reply_ioctl(request, 0, answer.data(), kept);
}

unsigned UsbDevice::ReadyEvents() {
    unsigned events = 0;
    if (reads_.empty() && !stream_.Outgoing().empty()) events |= ReadEvents;
    if (writes_.empty() && stream_.WantsInput()) events |= WriteEvents;
    return events;
}

void UsbDevice::NotifyPolls() {
    const unsigned events = ReadyEvents();
    if (events == polledEvents_) return;
    polledEvents_ = events;
    // Each wakes its poll(2), which asks again with a handle of its own.
    for (fuse_pollhandle* handle : polls_) {
        fuse_lowlevel_notify_poll(handle);
        fuse_pollhandle_destroy(handle);
    }
    polls_.clear();
}

}  // namespace langmon::emulator
