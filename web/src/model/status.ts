/** What a request's "ret" says, by the plugin's status codes. */
const meanings: Record<number, string> = {
  0: "OK",
  [-1]: "Failure",
  [-2]: "Bad argument",
  [-3]: "Not supported",
  [-4]: "Out of memory",
  [-5]: "Unknown URI",
  [-6]: "Duplicate",
  [-7]: "Not readable",
  2: "Invalid parameter",
  9: "Action failed",
  13: "USB scan running",
  14: "USB auto jump disabled",
};

export const meaningOf = (ret: number): string => meanings[ret] ?? (ret < 0 ? "Platform error" : "Request status");
