import { batch, signal } from "@preact/signals";
import { attempt } from "../../app/commands";
import { createListing, type Listing, type Page } from "../../app/listing";
import { television } from "../../app/session";

/** The files on the set's USB sticks: which stick, folder and kind is shown, and the list of it. */

export type Kind = "photo" | "music" | "video" | "playlist" | "folder";

export interface Entry {
  /** Begins with the stick's mount point. */
  path: string;
  name: string;
  kind: Kind;
  title?: string;
  artist?: string;
  album?: string;
  genre?: string;
  year?: number;
  /** Seconds. */
  duration?: number;
  width?: number;
  height?: number;
  size?: number;
  /** A time such as "2026-03-29T10:30:00Z". */
  date?: string;
  favourite?: boolean;
}

export interface Scan {
  state: "waiting" | "running" | "done" | "cancelled" | "failed";
  files: number;
  /** 0: unknown. */
  of: number;
  /** From 0 to 1. */
  progress: number;
  left_out: number;
  reason?: string;
}

export interface Stick {
  device: string;
  label: string;
  /** Its mount point. */
  path: string;
  photos: number;
  music: number;
  videos: number;
  playlists: number;
  folders: number;
  bytes: number;
  scan: Scan;
}

/** Everything in a folder, or one kind of all files below it. */
export type Shown = "all" | "photo" | "music" | "video" | "playlist";
export const sorts = ["name", "date", "size", "artist", "album"] as const;
export type Sort = (typeof sorts)[number];

/** Null until they are known. */
export const sticks = signal<readonly Stick[] | null>(null);

// Kept while another view is shown.
export const folder = signal("");
export const shown = signal<Shown>("all");
export const sort = signal<Sort>("name");
export const search = signal("");
export const grid = signal(false);
/** The entry whose details are shown. */
export const chosen = signal<Entry | null>(null);

export const scans = ({ scan: { state } }: Stick): boolean => state === "waiting" || state === "running";

const scanningMs = 500;
const idleMs = 2000;
export const pauseMs = (): number => (sticks.peek()?.some(scans) ? scanningMs : idleMs);

/** Whether a path is a folder or in it. */
const isIn = (path: string, place: string): boolean => path === place || path.startsWith(`${place}/`);

export const stickOf = (path: string): Stick | undefined => sticks.value?.find((stick) => isIn(path, stick.path));

export async function readSticks() {
  const reply = (await television("media")) as unknown as { sticks: Stick[] };
  const before = sticks.peek();
  batch(() => {
    sticks.value = reply.sticks;
    // A stick was removed, or the first one is inserted.
    if (!reply.sticks.some(({ path }) => isIn(folder.peek(), path))) openFolder(reply.sticks[0]?.path ?? "");
    if (chosen.peek() && !reply.sticks.some(({ path }) => isIn(chosen.peek()!.path, path))) chosen.value = null;
  });
  // While a scan runs, the list grows.
  const countOf = (list: readonly Stick[] | null | undefined) =>
    list?.map(({ path, scan }) => `${path} ${scan.state} ${scan.files}`).join("\n");
  if (before && countOf(before) !== countOf(reply.sticks)) listing.peek()?.refresh();
}

export function openFolder(path: string) {
  batch(() => {
    folder.value = path;
    search.value = "";
    chosen.value = null;
  });
}

/** The folder above the one that is shown; null at a stick's mount point. */
export function parentFolder(): string | null {
  const stick = stickOf(folder.value);
  return stick && folder.value !== stick.path ? folder.value.slice(0, folder.value.lastIndexOf("/")) : null;
}

/** The folders from the stick to the one that is shown. */
export function folderPath(): { id: string; name: string }[] {
  const stick = stickOf(folder.value);
  if (!stick) return [];
  const names = folder.value.slice(stick.path.length).split("/").filter(Boolean);
  return [
    { id: stick.path, name: stick.label || stick.device },
    ...names.map((name, index) => ({ id: [stick.path, ...names.slice(0, index + 1)].join("/"), name })),
  ];
}

// ---- the list

export const listing = signal<Listing<Entry> | null>(null);

/** Starts to read the list for what is chosen now. Returns a function that ends it. */
export function openListing(place: string, kind: Shown, order: Sort, text: string): () => void {
  const words = text ? ["search", text, kind] : ["list", kind, place, order];
  const opened = createListing<Entry>(async (index, count) => {
    const reply = await television("media", ...words, String(index), String(count));
    return reply as unknown as Page<Entry>;
  });
  listing.value = opened;
  return () => {
    opened.close();
    if (listing.peek() === opened) listing.value = null;
  };
}

/** Why the latest action failed. */
export const problem = signal("");

export async function toggleFavourite(entry: Entry) {
  const changed = await attempt<Entry>(problem, "media", "favourite", entry.path, entry.favourite ? "off" : "on");
  if (!changed) return;
  listing.peek()?.replace(({ path }) => path === entry.path, changed);
  if (chosen.peek()?.path === entry.path) chosen.value = changed;
}

/** Sends a command about sticks, then reads them again. Returns whether the set accepted it. */
export async function changeSticks(...words: string[]): Promise<boolean> {
  if (!(await attempt(problem, ...words))) return false;
  await readSticks().catch(() => undefined);
  return true;
}
