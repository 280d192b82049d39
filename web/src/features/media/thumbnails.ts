import { signal } from "@preact/signals";
import { television } from "../../app/session";

/** Small pictures of the entries that are seen. */

interface Made {
  path: string;
  /** In base64. */
  jpeg?: string;
  pending?: boolean;
  /** Why there is none. */
  none?: string;
}

/** A request's paths, and the requests' pause while the set still makes pictures. */
const mostPaths = 24;
const pendingMs = 400;
/** Pictures that are kept; beyond that the one that has not been seen for the longest time is dropped. */
const mostKept = 300;

/** Addresses of pictures; empty: there is none. In the order in which they were seen, the latest last. */
const known = new Map<string, string>();
const seen = new Map<string, number>();
/** The seen paths that the set is still working on. */
const pending = new Set<string>();
let busy = false;
let timer: ReturnType<typeof setTimeout> | undefined;

/** Counts the changes of what `thumbnailOf` returns. */
export const thumbnailVersion = signal(0);

/** The address of an entry's picture; undefined: not yet known; empty: there is none. */
export function thumbnailOf(path: string): string | undefined {
  void thumbnailVersion.value;
  return known.get(path);
}

function keep(path: string, address: string) {
  known.delete(path);
  known.set(path, address);
  for (const oldest of known.keys()) {
    if (known.size <= mostKept) break;
    if (!seen.has(oldest)) known.delete(oldest);
  }
}

function take({ path, jpeg, pending: waits }: Made) {
  if (waits) pending.add(path);
  else pending.delete(path);
  if (!waits) keep(path, jpeg === undefined ? "" : `data:image/jpeg;base64,${jpeg}`);
}

async function work() {
  if (busy) return;
  clearTimeout(timer);
  timer = undefined;
  busy = true;
  for (;;) {
    const missing = [...seen.keys()].filter((path) => !known.has(path));
    // New paths come first. When there are none, the page requests the pending ones again after a pause.
    const fresh = missing.filter((path) => !pending.has(path)).slice(0, mostPaths);
    const wanted = fresh.length > 0 ? fresh : missing.slice(0, mostPaths);
    if (wanted.length === 0) break;
    let failed = false;
    try {
      const reply = (await television("media", "thumbnails", ...wanted)) as unknown as { thumbnails: Made[] };
      reply.thumbnails.forEach(take);
      // A path without an answer is not asked for again at once.
      for (const path of wanted) if (!known.has(path)) pending.add(path);
      thumbnailVersion.value++;
    } catch {
      // A picture is a decoration: without it, the row has an icon.
      failed = true;
    }
    if (failed || fresh.length === 0) {
      timer = setTimeout(() => void work(), failed ? 5 * pendingMs : pendingMs);
      break;
    }
  }
  busy = false;
}

/** Asks for an entry's picture while it is seen: until the returned function is called. */
export function seeThumbnail(path: string): () => void {
  seen.set(path, (seen.get(path) ?? 0) + 1);
  const address = known.get(path);
  if (address !== undefined) keep(path, address);
  // After the other rows of this render; while the set makes pictures, the timer asks for the new ones too.
  else queueMicrotask(() => void work());
  return () => {
    const left = seen.get(path)! - 1;
    if (left > 0) seen.set(path, left);
    else {
      seen.delete(path);
      pending.delete(path);
    }
  };
}

/** Forgets the pictures: the files may be others. */
export function forgetThumbnails() {
  known.clear();
  pending.clear();
  thumbnailVersion.value++;
}
