// Readable sentences for the codes of the web APIs. The framework's codes
// (101-120, 400-407) and the Files API's codes (1000-1039) map to what a
// person can act on; the server's own message is added when it says more.

export const SESSION_CODES = new Set([105, 106, 119]);

const SENTENCES = {
  0: "The server could not be reached or gave no valid answer.",
  100: "Something unexpected went wrong on the server.",
  101: "The request was incomplete (a required value was missing).",
  102: "This feature is not available on the server.",
  103: "This action is not available on the server.",
  104: "This server does not support this version of the action.",
  105: "You are not signed in, or you may not do this.",
  106: "Your session has timed out. Please sign in again.",
  107: "Another sign-in replaced this session.",
  114: "A value sent to the server was missing or not valid.",
  117: "The server could not build its answer.",
  119: "Your session is no longer valid. Please sign in again.",
  120: "A value sent to the server was refused.",
  400: "The server refused the request.",
  401: "The server could not handle the request.",
  402: "Wrong account name or password.",
  403: "This account cannot sign in (disabled or expired).",
  407: "Too many failed sign-ins. Please wait a moment and try again.",
  1000: "The file service could not do this.",
  1002: "The item was not found (it may have been moved or deleted).",
  1003: "The uploaded data did not arrive; please try again.",
  1004: "The file changed while it was being sent; please try again.",
  1006: "You do not have permission to do this.",
  1007: "You are not signed in, or the sharing link is no longer valid.",
  1009: "That is not a folder.",
  1010: "A folder is in the way: a file cannot replace a folder.",
  1012: "There is no preview for this item.",
  1013: "This preview size or format is not supported.",
  1014: "The server's storage failed or is full.",
  1016: "Your storage quota is used up.",
  1017: "The file is too large.",
  1022: "The server did not accept the request's values.",
  1023: "The server speaks another protocol version.",
  1024: "The file service is busy or not running. Please try again later.",
  1025: "Too many items at once (at most 10,000). Select fewer items.",
  1026: "This item cannot be converted.",
  1027: "That name is not allowed (empty, \".\", \"..\", a \"/\" or too long).",
  1028: "A label with that name already exists.",
  1031: "An item with that name already exists here, or a folder cannot go into itself.",
  1033: "That server folder is not open to you.",
  1034: "That server folder does not exist.",
  1035: "Too many items to answer at once.",
  1036: "The background task failed.",
  1037: "The background task was cancelled.",
  1038: "The file service hit an internal error.",
  1039: "This item is encrypted.",
};

// Server messages that only name the failing step add nothing for a person.
const BARE_STEP = /^(\w+ )*(failed|failure)$/i;

export function describeError(code, message) {
  const base = SENTENCES[code] || `The server answered with error ${code}.`;
  const extra = (message || "").trim();
  if (!extra || BARE_STEP.test(extra) || base.toLowerCase().includes(extra.toLowerCase())) {
    return base;
  }
  return `${base} (${extra})`;
}
