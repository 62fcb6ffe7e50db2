// See zip_stream.h.
#include "zip_stream.h"

#include <archive.h>
#include <archive_entry.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <strings.h>
#include <memory>
#include <vector>

#include "orvelcommon/scoped_fd.h"

namespace orvel::archiver {
namespace {

struct EntryDeleter {
  void operator()(archive_entry* e) const { archive_entry_free(e); }
};
using EntryPtr = std::unique_ptr<archive_entry, EntryDeleter>;

// The sorted entry names of an open folder (consumes a dup of the fd).
bool ReadNames(int dir_fd, std::vector<std::string>* names) {
  int dup_fd = fcntl(dir_fd, F_DUPFD_CLOEXEC, 0);
  if (dup_fd < 0) return false;
  DIR* dir = fdopendir(dup_fd);
  if (!dir) {
    close(dup_fd);
    return false;
  }
  while (const dirent* e = readdir(dir)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    names->emplace_back(e->d_name);
  }
  closedir(dir);
  std::sort(names->begin(), names->end());
  return true;
}

}  // namespace

std::string CharsetForCodePage(const std::string& code_page) {
  static const struct {
    const char* code;
    const char* charset;
  } kTable[] = {
      {"enu", "CP1252"}, {"fre", "CP1252"}, {"ger", "CP1252"}, {"ita", "CP1252"},
      {"spn", "CP1252"}, {"nld", "CP1252"}, {"sve", "CP1252"}, {"dan", "CP1252"},
      {"nor", "CP1252"}, {"ptg", "CP1252"}, {"ptb", "CP1252"}, {"trk", "CP1254"},
      {"plk", "CP1250"}, {"csy", "CP1250"}, {"hun", "CP1250"}, {"rus", "CP1251"},
      {"cht", "CP950"},  {"chs", "CP936"},  {"jpn", "CP932"},  {"krn", "CP949"},
      {"tha", "CP874"},
  };
  for (const auto& row : kTable) {
    if (strcasecmp(code_page.c_str(), row.code) == 0) return row.charset;
  }
  return code_page;
}

ZipStream::ZipStream(int out_fd, bool utf8, const std::string& code_page)
    : output_(out_fd), utf8_(utf8), code_page_(code_page) {}

ZipStream::~ZipStream() {
  if (a_) archive_write_free(a_);
}

bool ZipStream::Open(std::string* error) {
  a_ = archive_write_new();
  if (!a_ || archive_write_set_format_zip(a_) != ARCHIVE_OK) {
    *error = "cannot make a zip writer";
    return false;
  }
  if (archive_write_set_options(a_, "zip:compression=store") != ARCHIVE_OK) {
    *error = std::string("zip options: ") + archive_error_string(a_);
    return false;
  }
  std::string charset = utf8_ ? "UTF-8" : CharsetForCodePage(code_page_);
  if (!charset.empty() &&
      (archive_write_set_option(a_, "zip", "hdrcharset", charset.c_str()) != ARCHIVE_OK ||
       !names_.SetCharset(charset))) {
    // An unknown code page: keep the names as they are rather than fail.
    fprintf(stderr, "zip warning: code page %s not available, names stay as they are\n",
            code_page_.c_str());
  }
  // No blocking: every write goes out as soon as it is made, with the
  // buffer it was made from (ZipOutput recognises file content by it).
  archive_write_set_bytes_per_block(a_, 0);
  if (archive_write_open2(a_, this, nullptr, &ZipStream::WriteOut, nullptr, nullptr) != ARCHIVE_OK) {
    *error = std::string("open output: ") + archive_error_string(a_);
    return false;
  }
  open_ = true;
  return true;
}

bool ZipStream::AddTree(const std::string& folder, std::string* error) {
  ScopedFd dir(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() < 0) {
    *error = "open " + folder + ": " + strerror(errno);
    return false;
  }
  return AddDir(dir.get(), "", error);
}

bool ZipStream::AddDir(int dir_fd, const std::string& prefix, std::string* error) {
  std::vector<std::string> names;
  if (!ReadNames(dir_fd, &names)) {
    Skip(prefix, "read folder", errno);
    return true;
  }
  for (const std::string& name : names) {
    if (!AddEntry(dir_fd, name, prefix, error)) return false;
  }
  return true;
}

void ZipStream::Skip(const std::string& path, const char* what, int err) {
  fprintf(stderr, "zip warning: %s %s: %s\n", what, path.c_str(), strerror(err));
  ++result_.skipped;
}

bool ZipStream::AddEntry(int dir_fd, const std::string& name, const std::string& prefix,
                         std::string* error) {
  // The entry's name in the archive (entry_names.h); messages use it too.
  const std::string path = prefix + names_.Component(name);
  struct stat st;
  if (fstatat(dir_fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    Skip(path, "stat", errno);
    return true;
  }
  EntryPtr entry(archive_entry_new());
  archive_entry_set_mode(entry.get(), st.st_mode);
  archive_entry_set_mtime(entry.get(), st.st_mtime, 0);
  ScopedFd file(-1);
  std::string link_text;  // content of a link stored as a plain file
  if (S_ISDIR(st.st_mode)) {
    archive_entry_set_pathname_utf8(entry.get(), (path + "/").c_str());
    archive_entry_set_size(entry.get(), 0);
  } else if (S_ISLNK(st.st_mode)) {
    std::vector<char> buf(static_cast<size_t>(st.st_size > 0 ? st.st_size : 255) + 1);
    ssize_t n = readlinkat(dir_fd, name.c_str(), buf.data(), buf.size() - 1);
    if (n < 0) {
      Skip(path, "readlink", errno);
      return true;
    }
    const std::string target(buf.data(), static_cast<size_t>(n));
    const auto depth = static_cast<size_t>(std::count(prefix.begin(), prefix.end(), '/'));
    std::string kept;
    archive_entry_set_pathname_utf8(entry.get(), path.c_str());
    if (names_.LinkTarget(target, depth, &kept)) {
      archive_entry_set_symlink_utf8(entry.get(), kept.c_str());
      archive_entry_set_size(entry.get(), 0);
    } else {
      link_text = target;  // leaves the tree: a plain file holding the target
      archive_entry_set_mode(entry.get(), S_IFREG | 0644);
      archive_entry_set_size(entry.get(), static_cast<la_int64_t>(link_text.size()));
    }
  } else if (S_ISREG(st.st_mode)) {
    file.Reset(openat(dir_fd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (file.get() < 0) {
      Skip(path, "open", errno);
      return true;
    }
    archive_entry_set_pathname_utf8(entry.get(), path.c_str());
    archive_entry_set_size(entry.get(), st.st_size);
  } else {
    return true;  // devices, sockets, fifos: not archived
  }
  int rc = archive_write_header(a_, entry.get());
  if (rc == ARCHIVE_WARN) {
    fprintf(stderr, "zip warning: %s: %s\n", path.c_str(), archive_error_string(a_));
  } else if (rc != ARCHIVE_OK) {
    *error = path + ": " + archive_error_string(a_);
    return false;
  }
  ++result_.entries;
  if (file.get() >= 0 && !WriteFileData(file.get(), path, error)) return false;
  const auto text_size = static_cast<la_ssize_t>(link_text.size());
  if (text_size > 0 && archive_write_data(a_, link_text.data(), link_text.size()) != text_size) {
    *error = path + ": " + archive_error_string(a_);
    return false;
  }
  if (!S_ISDIR(st.st_mode)) return true;
  ScopedFd sub(openat(dir_fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (sub.get() < 0) {
    Skip(path, "open folder", errno);
    return true;
  }
  return AddDir(sub.get(), path + "/", error);
}

ssize_t ZipStream::WriteOut(archive* a, void* self, const void* data, size_t len) {
  std::string error;
  if (!static_cast<ZipStream*>(self)->output_.Write(data, len, &error)) {
    archive_set_error(a, EIO, "%s", error.c_str());
    return -1;
  }
  return static_cast<ssize_t>(len);
}

bool ZipStream::WriteFileData(int fd, const std::string& path, std::string* error) {
  if (block_.empty()) block_.resize(kBlock);
  std::vector<char>& block = block_;
  off_t offset = 0;
  for (;;) {
    ssize_t r = read(fd, block.data(), block.size());
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) {
      // The header promised a size: the archive cannot be made whole.
      *error = "read " + path + ": " + strerror(errno);
      return false;
    }
    if (r == 0) return true;
    output_.Expect(block.data(), static_cast<size_t>(r), fd, offset);
    offset += r;
    la_ssize_t w = archive_write_data(a_, block.data(), static_cast<size_t>(r));
    if (w < 0) {
      *error = path + ": " + archive_error_string(a_);
      return false;
    }
    result_.bytes += static_cast<unsigned long long>(r);
  }
}

bool ZipStream::Close(std::string* error) {
  if (!open_) return true;
  open_ = false;
  if (archive_write_close(a_) != ARCHIVE_OK) {
    *error = std::string("close: ") + archive_error_string(a_);
    return false;
  }
  return true;
}

}  // namespace orvel::archiver
