// The handlers of the browsing, marks, sharing, search, thumbnail and update
// ops (docs/wire.md, docs/browse.md), by file: ops_marks.cc (stars, labels,
// mark listings, recent items), ops_sharing.cc (ancestors, backups, access
// requests and the administrator's sharing ops), ops_search.cc,
// ops_thumbnail.cc, ops_update.cc. Each returns OK and fills *result, or an
// error Status of the catalogue.
#pragma once

#include <string>

#include "db/store.h"
#include "dispatch.h"

namespace orvel::syncd {

// The list filter of docs/wire.md (ops_files.cc); *label_id and *starred
// pick marked items.
Status ParseListFilter(const PObject& filter, ListQuery* q, std::string* label_id, bool* starred);

// The caller's marks that an upload or update carries ("starred": star
// actions or one boolean, "labels": label actions, "mute": boolean).
// HasItemMarks: whether any is present. CheckItemMarks: kErrInvalidArgument
// when one has the wrong kind. ApplyItemMarks applies them, in order, to one
// item inside the caller's open write transaction; kErrPermission for a link
// visitor, or the first action's error (kErrLabelNotFound, ...).
// CheckItemMarkActions finds every error ApplyItemMarks would meet (but a
// visitor's), without changing anything, for callers that change other
// things first.
bool HasItemMarks(const PObject& args);
Status CheckItemMarks(const PObject& args);
Status CheckItemMarkActions(RequestContext& ctx, const PObject& args);
Status ApplyItemMarks(RequestContext& ctx, const std::string& file_id, const PObject& args);

Status OpEditStar(RequestContext& ctx, const PObject& args, PObject* result);
Status OpEditLabel(RequestContext& ctx, const PObject& args, PObject* result);
Status OpListStarred(RequestContext& ctx, const PObject& args, PObject* result);
Status OpListLabelled(RequestContext& ctx, const PObject& args, PObject* result);
Status OpListSharedWithMe(RequestContext& ctx, const PObject& args, PObject* result);
Status OpListSharedWithOthers(RequestContext& ctx, const PObject& args, PObject* result);
Status OpListRecent(RequestContext& ctx, const PObject& args, PObject* result);

Status OpListAncestor(RequestContext& ctx, const PObject& args, PObject* result);
Status OpListBackups(RequestContext& ctx, const PObject& args, PObject* result);
Status OpRequestAccess(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminLinkRemove(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminBackupAdd(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminBackupRemove(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminAccessRequests(RequestContext& ctx, const PObject& args, PObject* result);

// Labels (ops_labels.cc): the caller's list and their administration. CheckLabelColour: OK for "#rrggbb"
// (hex digits, any case), else kErrLabelColour.
Status CheckLabelColour(const std::string& colour);
Status OpAdminLabelList(RequestContext& ctx, const PObject& args, PObject* result);
Status OpLabelList(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminLabelSetColour(RequestContext& ctx, const PObject& args, PObject* result);
Status OpAdminLabelRename(RequestContext& ctx, const PObject& args, PObject* result);

Status OpSearch(RequestContext& ctx, const PObject& args, PObject* result);
Status OpGetThumbnail(RequestContext& ctx, const PObject& args, PObject* result);
Status OpUpdateFile(RequestContext& ctx, const PObject& args, PObject* result);

}  // namespace orvel::syncd
