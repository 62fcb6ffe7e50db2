// See schema_browse.h. Never edit a migration that has shipped: add a new one.
#include "db/schema_browse.h"

namespace orvel::syncd {

// Version 10: per-user marks (stars, labels, mutes), shares with users and
// groups, sharing links, recent items (bounded per user by a trigger),
// backup tasks and access requests. Marks name items by file_id, which
// survives renames and overwrites.
const char kBrowseSchemaV10[] = R"SQL(
CREATE TABLE stars (user TEXT NOT NULL, file_id TEXT NOT NULL, created INTEGER NOT NULL,
  PRIMARY KEY (user, file_id)) WITHOUT ROWID;
CREATE TABLE mutes (user TEXT NOT NULL, file_id TEXT NOT NULL,
  PRIMARY KEY (user, file_id)) WITHOUT ROWID;
CREATE TABLE labels (label_id TEXT PRIMARY KEY, user TEXT NOT NULL, name TEXT NOT NULL,
  color TEXT NOT NULL, created INTEGER NOT NULL);
CREATE UNIQUE INDEX labels_user_name ON labels(user, name COLLATE NOCASE);
CREATE TABLE item_labels (user TEXT NOT NULL, label_id TEXT NOT NULL, file_id TEXT NOT NULL,
  created INTEGER NOT NULL, PRIMARY KEY (user, label_id, file_id)) WITHOUT ROWID;
CREATE INDEX item_labels_file ON item_labels(file_id, user);
CREATE TABLE shares (id INTEGER PRIMARY KEY, file_id TEXT NOT NULL, owner TEXT NOT NULL,
  kind TEXT NOT NULL, name TEXT NOT NULL, role TEXT NOT NULL, created INTEGER NOT NULL);
CREATE UNIQUE INDEX shares_member ON shares(file_id, kind, name);
CREATE INDEX shares_to ON shares(kind, name);
CREATE INDEX shares_owner ON shares(owner);
CREATE TABLE links (token TEXT PRIMARY KEY, file_id TEXT NOT NULL, owner TEXT NOT NULL,
  role TEXT NOT NULL, created INTEGER NOT NULL, expires INTEGER NOT NULL DEFAULT 0);
CREATE INDEX links_file ON links(file_id);
CREATE INDEX links_owner ON links(owner);
CREATE TABLE recent (id INTEGER PRIMARY KEY, user TEXT NOT NULL, file_id TEXT NOT NULL,
  at INTEGER NOT NULL);
CREATE UNIQUE INDEX recent_item ON recent(user, file_id);
CREATE INDEX recent_order ON recent(user, id);
CREATE TRIGGER recent_bound AFTER INSERT ON recent WHEN NEW.id % 256 = 0 BEGIN
  DELETE FROM recent WHERE user = NEW.user AND id <
    (SELECT id FROM recent WHERE user = NEW.user ORDER BY id DESC LIMIT 1 OFFSET 999);
END;
CREATE TRIGGER recent_on_insert AFTER INSERT ON nodes
  WHEN NEW.parent_id <> '' AND NEW.type = 0 AND NEW.vanished = 0 BEGIN
  INSERT OR REPLACE INTO recent (user, file_id, at) VALUES (NEW.owner, NEW.file_id, NEW.change_time);
END;
CREATE TRIGGER recent_on_change AFTER UPDATE OF hash, name ON nodes
  WHEN NEW.parent_id <> '' AND (NEW.hash IS NOT OLD.hash OR NEW.name IS NOT OLD.name) BEGIN
  INSERT OR REPLACE INTO recent (user, file_id, at) VALUES (NEW.owner, NEW.file_id, NEW.change_time);
END;
CREATE TABLE backups (task_id TEXT PRIMARY KEY, user TEXT NOT NULL, name TEXT NOT NULL,
  target TEXT NOT NULL, created INTEGER NOT NULL);
CREATE INDEX backups_user ON backups(user);
CREATE TABLE access_requests (file_id TEXT NOT NULL, requester TEXT NOT NULL, owner TEXT NOT NULL,
  at INTEGER NOT NULL, PRIMARY KEY (file_id, requester)) WITHOUT ROWID;
CREATE INDEX access_requests_owner ON access_requests(owner, at);
)SQL";

// Version 11: the full-text index of names and extracted text (FTS5, rowid =
// nodes.id) and the queue that keeps it current. Triggers queue every row
// whose name, content or liveness changes; the search op drains the queue
// before it answers, so writers never pay for text extraction. A row queued
// again while it is being indexed gets a new queue id, so its newer state is
// indexed too.
const char kBrowseSchemaV11[] = R"SQL(
CREATE VIRTUAL TABLE search_fts USING fts5(name, body, tokenize = 'unicode61 remove_diacritics 2');
CREATE TABLE search_pending (id INTEGER PRIMARY KEY, node_row INTEGER NOT NULL UNIQUE);
CREATE TRIGGER search_on_insert AFTER INSERT ON nodes WHEN NEW.parent_id <> '' BEGIN
  INSERT OR REPLACE INTO search_pending (node_row) VALUES (NEW.id);
END;
CREATE TRIGGER search_on_update AFTER UPDATE OF name, hash, removed, vanished ON nodes
  WHEN NEW.parent_id <> '' AND (NEW.name IS NOT OLD.name OR NEW.hash IS NOT OLD.hash OR
       NEW.removed IS NOT OLD.removed OR NEW.vanished IS NOT OLD.vanished) BEGIN
  INSERT OR REPLACE INTO search_pending (node_row) VALUES (NEW.id);
END;
CREATE TRIGGER search_on_delete AFTER DELETE ON nodes BEGIN
  INSERT OR REPLACE INTO search_pending (node_row) VALUES (OLD.id);
END;
INSERT INTO search_pending (node_row) SELECT id FROM nodes WHERE parent_id <> '';
)SQL";

// Version 21: a row deleted for good (permanent delete, a merged move) takes
// every user's marks, shares, links, recent entries and access requests of
// its file_id with it, in the deleting transaction. The file_id indexes keep
// that an index seek per row; rows left behind by earlier versions go now.
const char kBrowseSchemaV21[] = R"SQL(
CREATE INDEX stars_file ON stars(file_id);
CREATE INDEX mutes_file ON mutes(file_id);
CREATE INDEX recent_file ON recent(file_id);
CREATE TRIGGER marks_on_purge AFTER DELETE ON nodes BEGIN
  DELETE FROM stars WHERE file_id = OLD.file_id;
  DELETE FROM mutes WHERE file_id = OLD.file_id;
  DELETE FROM item_labels WHERE file_id = OLD.file_id;
  DELETE FROM shares WHERE file_id = OLD.file_id;
  DELETE FROM links WHERE file_id = OLD.file_id;
  DELETE FROM recent WHERE file_id = OLD.file_id;
  DELETE FROM access_requests WHERE file_id = OLD.file_id;
END;
DELETE FROM stars WHERE file_id NOT IN (SELECT file_id FROM nodes);
DELETE FROM mutes WHERE file_id NOT IN (SELECT file_id FROM nodes);
DELETE FROM item_labels WHERE file_id NOT IN (SELECT file_id FROM nodes);
DELETE FROM shares WHERE file_id NOT IN (SELECT file_id FROM nodes);
DELETE FROM links WHERE file_id NOT IN (SELECT file_id FROM nodes);
DELETE FROM recent WHERE file_id NOT IN (SELECT file_id FROM nodes);
DELETE FROM access_requests WHERE file_id NOT IN (SELECT file_id FROM nodes);
)SQL";

const char kBrowseSchemaV25[] = R"SQL(
ALTER TABLE links ADD COLUMN password_hash TEXT NOT NULL DEFAULT '';
CREATE TABLE link_grants (digest TEXT PRIMARY KEY, token TEXT NOT NULL, expires INTEGER NOT NULL);
CREATE INDEX link_grants_token ON link_grants(token);
)SQL";

}  // namespace orvel::syncd
