import { batch, signal, type Signal } from "@preact/signals";
import { attempt } from "../../app/commands";
import { readClock, secondsOf } from "../../app/set-clock";
import { television } from "../../app/session";
import { label } from "./words";

/** Recordings, timers, reminders and series of the set. */

export interface Recording {
  id: number;
  title: string;
  channel: string;
  /** A time such as "2026-03-29T10:30:00Z". */
  start: string;
  /** So far, of one that runs. */
  seconds: number;
  bytes: number;
  status: "none" | "recording" | "complete" | "partial" | "failed";
  reason?: string;
  /** Bytes that the disk was too slow for. */
  lost_bytes?: number;
  /** Protected from deletion. */
  kept?: boolean;
}

/** The recording that the set plays. */
export interface Playback {
  recording: number;
  title: string;
  position_seconds: number;
  /** The duration, which grows while the recording runs. */
  seconds: number;
  running: boolean;
  paused: boolean;
}

/** Null: the set plays none. */
export const playback = signal<Playback | null>(null);

export interface Timer {
  id: number;
  kind: "reminder" | "record" | "watch" | "series";
  title: string;
  channel: string;
  /** A series has no times. */
  from?: string;
  to?: string;
  /** Why its recording could not begin. */
  waits?: string;
  /** The recording that it makes now. */
  recording?: number;
  /** The series that added it. */
  series?: number;
}

interface RecordingsPage {
  total: number;
  recordings: Recording[];
}

/** Null until they are known. */
export const recordings = signal<readonly Recording[] | null>(null);
export const timers = signal<readonly Timer[] | null>(null);
/** How many recordings the set has, of which only some may have been read. */
export const total = signal(0);

/** The pages of recordings that are read; the set decides their length. */
const pages = signal(1);

export async function readRecordings() {
  const known: Recording[] = [];
  let count = 0;
  for (let page = 0; page < pages.peek(); page++) {
    const reply = (await television("recordings", String(known.length))) as unknown as RecordingsPage;
    known.push(...reply.recordings);
    count = reply.total;
    if (reply.recordings.length === 0 || known.length >= count) break;
  }
  const planned = (await television("timers")) as unknown as { timers: Timer[] };
  const played = (await television("playback")) as unknown as Playback | { recording: null };
  await readClock();
  batch(() => {
    playback.value = played.recording === null ? null : played;
    recordings.value = known;
    total.value = count;
    timers.value = planned.timers;
  });
}

export async function readMore() {
  pages.value++;
  await readRecordings();
}

/** Sends a command, then reads the lists again. Returns whether the set accepted it; `problem` tells why not. */
export async function change(problem: Signal<string>, ...words: string[]): Promise<boolean> {
  if (!(await attempt(problem, ...words))) return false;
  await readRecordings().catch(() => undefined);
  return true;
}

/** The time that a recording has still to run, in seconds; null if none of the timers makes it. */
export function endOf(recording: Recording): { from: number; to: number } | null {
  const timer = timers.value?.find((each) => each.recording === recording.id);
  return timer?.from && timer.to ? { from: secondsOf(timer.from), to: secondsOf(timer.to) } : null;
}

export function durationText(length: number): string {
  const hours = Math.floor(length / 3600);
  const minutes = Math.floor((length % 3600) / 60);
  if (hours > 0) return label("IDS_HOURS_MINUTES", hours, minutes);
  return minutes > 0 ? label("IDS_MINUTES", minutes) : label("IDS_SECONDS", length);
}
