// The tables of a server's state.
//
// A brain's feed is a row of entries numbered by `seq`, each under a random cursor; the first entry that is
// kept is the oldest position from which the feed can be read. A node's row holds from entry `born` until
// entry `died` (NULL: it holds now), so the tree as it was at any kept entry can still be read.
#pragma once

namespace vorlinden::server {

inline constexpr int schemaVersion = 1;

inline constexpr const char* schema = R"sql(
CREATE TABLE settings (key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;

CREATE TABLE clients (
  client_id TEXT PRIMARY KEY,
  name TEXT NOT NULL,
  redirect_uris TEXT NOT NULL,          -- one per line
  issued_at INTEGER NOT NULL
) WITHOUT ROWID;

-- A question to the person (ticket), then the code that answers it. Secrets are kept as digests only.
CREATE TABLE authorizations (
  ticket TEXT PRIMARY KEY,
  client_id TEXT NOT NULL,
  redirect_uri TEXT NOT NULL,
  state TEXT,
  challenge TEXT NOT NULL,
  scope TEXT NOT NULL,
  expires_at INTEGER NOT NULL,
  member TEXT,                          -- who said yes
  code TEXT UNIQUE,
  session INTEGER                       -- what the code was exchanged for
) WITHOUT ROWID;

CREATE TABLE sessions (
  session INTEGER PRIMARY KEY AUTOINCREMENT,
  client_id TEXT NOT NULL,
  member TEXT NOT NULL,
  scope TEXT NOT NULL
);
CREATE TABLE access_tokens (
  token TEXT PRIMARY KEY,
  session INTEGER NOT NULL REFERENCES sessions ON DELETE CASCADE,
  expires_at INTEGER NOT NULL
) WITHOUT ROWID;
CREATE TABLE refresh_tokens (
  token TEXT PRIMARY KEY,
  session INTEGER NOT NULL REFERENCES sessions ON DELETE CASCADE,
  rotated_at INTEGER
) WITHOUT ROWID;
CREATE INDEX access_tokens_by_session ON access_tokens (session);
CREATE INDEX refresh_tokens_by_session ON refresh_tokens (session);

CREATE TABLE devices (
  id TEXT PRIMARY KEY,
  member TEXT NOT NULL,
  name TEXT NOT NULL,
  platform TEXT NOT NULL,
  created_at TEXT NOT NULL,
  last_seen_at TEXT
) WITHOUT ROWID;

CREATE TABLE brains (
  brain INTEGER PRIMARY KEY,
  id TEXT NOT NULL UNIQUE,
  slug TEXT NOT NULL UNIQUE,
  name TEXT NOT NULL,
  granted INTEGER NOT NULL DEFAULT 1,
  lists_folders INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE entries (
  brain INTEGER NOT NULL,
  seq INTEGER NOT NULL,
  cursor TEXT NOT NULL,
  at TEXT NOT NULL,
  body TEXT NOT NULL,                   -- the entry as it goes over the wire
  PRIMARY KEY (brain, seq)
) WITHOUT ROWID;
CREATE UNIQUE INDEX entries_by_cursor ON entries (brain, cursor);

CREATE TABLE nodes (
  node INTEGER PRIMARY KEY,
  brain INTEGER NOT NULL,
  path TEXT NOT NULL,
  node_id TEXT NOT NULL,
  title TEXT NOT NULL,
  is_directory INTEGER NOT NULL,
  kind TEXT NOT NULL,
  hash TEXT,                            -- of the content; NULL for a folder
  size INTEGER NOT NULL,
  updated_at TEXT NOT NULL,
  born INTEGER NOT NULL,
  died INTEGER
);
CREATE UNIQUE INDEX living_nodes ON nodes (brain, path) WHERE died IS NULL;
CREATE INDEX dead_nodes ON nodes (brain, died) WHERE died IS NOT NULL;
CREATE INDEX nodes_by_path ON nodes (brain, path, born);
CREATE INDEX nodes_by_hash ON nodes (hash);

CREATE TABLE contents (
  hash TEXT PRIMARY KEY,
  size INTEGER NOT NULL,
  stored_at INTEGER NOT NULL,
  bytes BLOB                            -- NULL: in a file of its own
);

-- What the last import of a folder brought, so that the next one tells the folder's changes from the members'.
CREATE TABLE imported (
  brain INTEGER NOT NULL,
  path TEXT NOT NULL,
  hash TEXT,                            -- NULL for a folder
  PRIMARY KEY (brain, path)
) WITHOUT ROWID;
)sql";

}  // namespace vorlinden::server
