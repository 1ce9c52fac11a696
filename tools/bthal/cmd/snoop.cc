// bthal snoop: the vendor packet log, one line a packet, or passed on to another program.
#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/cmd/packet_options.h"
#include "bthal/run/device_names.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/output_file.h"
#include "bthal/show/snoop/capture_format.h"
#include "bthal/show/snoop/snoop_follower.h"
#include "bthal/show/terminal.h"
#include "os/device_path.h"
#include "os/file_utils.h"

namespace bthal::tool {
namespace {

struct SnoopOptions {
  std::string file;
  std::string output;
  std::string format;
  bool once = false;
  bool follow = false;
  LogView view;
  FilterWords filter;
};

// Where the packets go instead of being shown.
class Capture {
 public:
  bool Open(const std::string& path, CaptureFormat format, std::string* error) {
    format_ = format;
    if (path == "-" && IsTerminal()) {
      *error = "-w -: standard output is a terminal; send it to a program or a file";
      return false;
    }
    if (path != "-" && !MayWriteOutput(path, error)) return false;
    fd_.reset(path == "-" ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                          : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd_.ok()) *error = "cannot write " + path + ": " + strerror(errno);
    if (fd_.ok()) Write(CaptureHeader(format));
    return fd_.ok();
  }

  bool IsOpen() const { return fd_.ok(); }
  void Write(const SnoopRecord& record) { Write(CaptureRecord(format_, record)); }

  // Whether nobody reads any more. A pipe tells it also while there is nothing to write.
  bool Deserted() const {
    if (error_ != 0) return true;
    pollfd reader = {fd_.get(), 0, 0};
    return fd_.ok() && poll(&reader, 1, 0) > 0 && (reader.revents & POLLERR) != 0;
  }
  // Why nothing more can be written; empty also where its reader has just had enough.
  std::string Trouble() const { return error_ == 0 || error_ == EPIPE ? "" : strerror(error_); }

 private:
  void Write(const std::string& bytes) {
    if (error_ == 0 && !::android::base::WriteFully(fd_.get(), bytes.data(), bytes.size())) error_ = errno;
  }

  ::android::base::unique_fd fd_;
  CaptureFormat format_ = CaptureFormat::kBtsnoop;
  int error_ = 0;
};

// Packets that are read must not be lost to those that are written, nor be read again: the log and the older part that
// the service keeps of it are no place for them.
bool IsRead(const std::string& output, const std::string& log, std::string* error) {
  const std::string written = output == "-" ? "/proc/self/fd/1" : output;  // a bare /dev has no stdout
  for (const std::string& read : {log, BackupOf(log)}) {
    if (!AreOneFile(written, read)) continue;
    *error = ::android::base::StringPrintf("-w %s: it is %s, which is read; choose another name", output.c_str(),
                                           read.c_str());
    return true;
  }
  return false;
}

// `why`, and what is to be done for the service's own log to come; nothing can be said of another file.
std::string WithRemedy(const std::string& why, const SnoopOptions& options) {
  using ::android::base::GetProperty;
  if (!options.file.empty()) return why;
  const std::string set = why + "; switch it on: bthal prop set ";
  if (!::android::base::GetBoolProperty(kSnoopProperty, false)) return set + kSnoopProperty + " true";
  const std::string build = GetProperty(kBuildTypeProperty, "");
  const bool filtered = build == "userdebug" || build == "eng";
  if (GetProperty(kSnoopLogModeProperty, filtered ? "filtered" : "disabled") == "disabled") {
    return set + kSnoopLogModeProperty + " full";
  }
  return why + "; it is begun when a client takes the HAL, as bthal hci does";
}

int Follow(const SnoopOptions& options, const std::string& path, const SnoopFilter& filter, Capture& capture) {
  SnoopFollower follower(path, [] {
    fflush(stdout);
    fprintf(stderr, "bthal: packets were missed here: the log was rotated faster than it was read\n");
  });
  LogPrinter printer(options.view);
  const auto take = [&](const SnoopRecord& record) {
    if (!filter.Takes(record)) return;
    if (capture.IsOpen()) {
      capture.Write(record);
    } else {
      printer.Print(record);
    }
  };
  bool told = false;
  do {
    std::string error;
    if (!follower.Poll(take, &error)) return Complain(error);
    fflush(stdout);
    if (capture.Deserted()) break;
    if (follower.opened() || told) continue;
    if (options.once) return Complain(WithRemedy("no log at " + path, options));
    Complain(WithRemedy("waiting for " + path, options));
    told = true;
  } while (!options.once && SleepUnlessInterrupted(std::chrono::milliseconds(50)));
  if (options.once && follower.Cut()) return Complain(path + " ends within a record");
  const std::string trouble = capture.Trouble();
  return trouble.empty() ? 0 : Complain("cannot write " + options.output + ": " + trouble);
}

int Run(const SnoopOptions& options) {
  const std::string path =
      options.file.empty() ? ::android::hardware::bluetooth::os::DevicePath(kSnoopLog) : options.file;
  std::string error;
  const std::optional<SnoopFilter> filter = ReadFilter(options.filter, &error);
  if (!filter) return Complain(error);
  if (options.once && options.follow) return Complain("--once and --follow: one or the other");
  if (!options.output.empty() && IsRead(options.output, path, &error)) return Complain(error);
  // What is there already does not go for nothing.
  if (options.once && access(path.c_str(), R_OK) != 0) {
    const std::string why = strerror(errno);
    return Complain(errno == ENOENT ? WithRemedy("no log at " + path, options) : "cannot read " + path + ": " + why);
  }
  CatchInterrupts();
  Capture capture;
  const bool pcap = options.format.empty() ? options.output == "-" : options.format == "pcap";
  const CaptureFormat format = pcap ? CaptureFormat::kPcap : CaptureFormat::kBtsnoop;
  if (!options.output.empty() && !capture.Open(options.output, format, &error)) return Complain(error);
  return Follow(options, path, *filter, capture);
}

}  // namespace

void AddSnoop(Command& app) {
  auto options = std::make_shared<SnoopOptions>();
  Command sub = app.Add("snoop", "Follow the vendor packet log, one line a packet");
  sub.Take("file", &options->file, "another btsnoop file").Type("FILE");
  sub.Flag("--once", &options->once, "print what is there and end, instead of following it");
  sub.Flag("--follow", &options->follow, "go on with what comes, which it does anyhow");
  AddViewOptions(sub, &options->view.packets);
  AddTimeOption(sub, &options->view.time);
  sub.Flag("--json", &options->view.json, "one JSON object a line, with all bytes");
  AddFilterOptions(sub, &options->filter);
  sub.Take("-w,--write", &options->output, "write the packets to FILE, or to standard output ('-'), instead")
      .Type("FILE");
  sub.Take("--format", &options->format, "of what is written; to standard output pcap, which is read while it grows")
      .OneOf({"btsnoop", "pcap"})
      .Type("btsnoop|pcap");
  sub.Footer(
      "The service writes the log when it is opened with persist.bluetooth.vendor.btsnoop true, on a userdebug or eng\n"
      "build (ro.build.type) or with persist.bluetooth.btsnooplogmode set. Ctrl-C ends.\n"
      "\nExamples:\n"
      "  bthal prop set persist.bluetooth.vendor.btsnoop true\n"
      "  bthal snoop --since 5m --kind event\n"
      "  bthal snoop --once --opcode le_set_scan_enable saved.log\n"
      "  bthal snoop -w - | wireshark -k -i -");
  sub.Run([options] { return Run(*options); });
}

}  // namespace bthal::tool
