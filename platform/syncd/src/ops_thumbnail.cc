// get_thumbnail: the path of an item's cached thumbnail (made on first
// request) and the name to deliver it under. Link visitors may ask for items
// under their link.
#include "access.h"
#include "ops_browse.h"
#include "space_fs.h"
#include "thumbnail.h"

namespace orvel::syncd {

Status OpGetThumbnail(RequestContext& ctx, const PObject& args, PObject* result) {
  std::string path;
  ThumbRequest want;
  ORVEL_RETURN_IF_ERROR(ArgString(args, "path", &path));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "format", &want.format));
  ORVEL_RETURN_IF_ERROR(ArgString(args, "size", &want.size));
  ORVEL_RETURN_IF_ERROR(ArgBool(args, "animate", &want.animate));
  ORVEL_RETURN_IF_ERROR(ParseThumbRequest(&want));
  Access item;
  ORVEL_RETURN_IF_ERROR(ResolveAccess(ctx, path, &item));
  const Node& n = item.node;
  if (n.is_dir()) return Status(kErrNoThumbnail, "no thumbnail for a folder: " + item.view_path);
  if (n.is_link()) return Status(kErrNoThumbnail, "no thumbnail for a symbolic link: " + item.view_path);
  if (n.encrypted) return Status(kErrEncrypted, "item is encrypted: " + item.view_path);
  if (!MayHaveThumbnail(n.ext) || n.size == 0)
    return Status(kErrNoThumbnail, "no thumbnail for this item: " + item.view_path);
  // The image library reads the inode opened beneath the space, by fd.
  ItemAt at;
  ScopedFd source;
  Status opened = OpenItemAt(*ctx.d, n.owner, item.components, &at);
  if (opened.ok()) opened = OpenFileAt(at.dir.get(), at.name, at.path, &source);
  if (opened.code() == kErrNotFound) return Status(kErrNoThumbnail, "no thumbnail for this item: " + item.view_path);
  if (opened.code() == kErrInvalidArgument)  // a FIFO or a device under an image's name
    return Status(kErrNoThumbnail, "no thumbnail for this item: not a regular file (" + item.view_path + ")");
  ORVEL_RETURN_IF_ERROR(opened);
  std::string thumb;
  Status st = GetOrMakeThumbnail(Decoder::FromConfig(ctx.d->config), ctx.d->layout.thumbs, source.get(), n.hash,
                                 n.ext, want, ctx.client_fd, &thumb);
  if (st.code() == kErrNoThumbnail) return Status(kErrNoThumbnail, st.message() + " (" + item.view_path + ")");
  ORVEL_RETURN_IF_ERROR(st);
  std::string stem = n.name.substr(0, n.name.find_last_of('.'));
  if (stem.empty()) stem = n.name;
  (*result)["path"] = thumb;
  (*result)["name"] = stem + "." + want.format;
  return Status::OK();
}

}  // namespace orvel::syncd
