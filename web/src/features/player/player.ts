import { batch, signal } from "@preact/signals";
import { attempt } from "../../app/commands";
import { television } from "../../app/session";

/** What the set plays from a file or a server, and the photo that it shows. */

export interface Track {
  kind: "audio" | "subtitle";
  number: number;
  language: string;
  title: string;
  codec: string;
  chosen: boolean;
}

export interface Chapter {
  number: number;
  title: string;
  /** Seconds. */
  start: number;
}

export interface Player {
  state: "none" | "opening" | "playing" | "paused" | "ended" | "failed";
  path?: string;
  title?: string;
  artist?: string;
  album?: string;
  /** Why playing failed. */
  reason?: string;
  /** Seconds. */
  position?: number;
  /** Seconds; 0: unknown. */
  duration?: number;
  speed?: number;
  repeat?: Repeat;
  /** An application plays it. */
  application?: boolean;
  tracks?: Track[];
  chapters?: Chapter[];
  /** The number of the present one. */
  chapter?: number;
}

export const repeats = ["off", "one", "folder"] as const;
export type Repeat = (typeof repeats)[number];

export interface Photo {
  state: "none" | "shown";
  path?: string;
  width?: number;
  height?: number;
  /** Degrees by which the viewer has turned it. */
  rotation?: number;
  /** Percent. */
  zoom?: number;
  slide_show?: boolean;
  application?: boolean;
  /** Its place in the folder, from 1, and how many photos that has. */
  index?: number;
  of?: number;
}

/** Null until they are known. */
export const player = signal<Player | null>(null);
export const photo = signal<Photo | null>(null);

const activeMs = 500;
const idleMs = 2000;

const isActive = (): boolean => {
  const state = player.peek()?.state;
  return state === "opening" || state === "playing" || photo.peek()?.slide_show === true;
};
export const pauseMs = (): number => (isActive() ? activeMs : idleMs);

// A reply to an earlier question must not replace one to a later command.
let commands = 0;

export async function readPlayer() {
  const before = commands;
  const [played, shown] = await Promise.all([television("player"), television("photo")]);
  if (commands !== before) return;
  batch(() => {
    player.value = played as unknown as Player;
    photo.value = shown as unknown as Photo;
  });
}

/** Why the latest command failed. */
export const problem = signal("");

/** Both return whether the set accepted the command. */
export async function sendPlayer(...words: string[]): Promise<boolean> {
  const number = ++commands;
  const reply = await attempt<Player>(problem, "player", ...words);
  if (reply && number === commands) player.value = reply;
  return reply !== null;
}

export async function sendPhoto(...words: string[]): Promise<boolean> {
  const number = ++commands;
  const reply = await attempt<Photo>(problem, "photo", ...words);
  if (reply && number === commands) photo.value = reply;
  return reply !== null;
}

/** Takes the reply of another command that has started the player. */
export function takePlayer(reply: Player) {
  commands++;
  player.value = reply;
}

/** The last part of a path. */
export const nameOf = (path: string): string => path.slice(path.lastIndexOf("/") + 1);
