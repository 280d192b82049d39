import { television } from "../../app/session";
import type { JsonObject } from "../../lib/json";
import { token } from "../../lib/token";
import type { Menu, Message } from "./menu";
import { label } from "./words";

/** What the television's screen shows, and its frames. */

export interface ShownEvent {
  title: string;
  start: string;
  seconds: number;
  /** From 0 to 1. */
  progress: number;
}

export interface Banner {
  number: number;
  name: string;
  present?: ShownEvent;
  following?: ShownEvent;
}

/** A place on the set's panel of 1920x1080 pixels. */
export interface Region {
  x: number;
  y: number;
  width: number;
  height: number;
}

/** The second picture, which lies over the main one. */
export interface SecondPicture {
  source: string;
  region: Region;
  /** Why there is no picture. */
  reason?: string;
  channel?: number;
  name?: string;
}

export interface Shown {
  picture: "channel" | "recording" | "media" | "photo" | "none";
  /** Of a recording or a file. */
  title?: string;
  /** Why there is no picture. */
  reason?: string;
  problem?: string;
  source: string;
  banner?: Banner;
  volume?: number;
  mute?: boolean;
  /** While there is a second picture: where the main one is, and which of them is heard. */
  region?: Region;
  second?: SecondPicture;
  focus?: "main" | "sub";
  /** The digits of a channel number so far. */
  typed?: string;
  menu?: Menu;
  /** What the set tells the viewer, such as a reminder. */
  message?: Message;
}

export const readShown = async (): Promise<Shown> => (await television("screen")) as JsonObject & Shown;

const messages: Readonly<Record<string, Parameters<typeof label>[0]>> = {
  standby: "IDS_STANDBY",
  no_channel: "IDS_NO_CHANNEL",
  no_signal: "IDS_NO_SIGNAL",
  scrambled: "IDS_SCRAMBLED",
  blocked_channel: "IDS_BLOCKED_PIN",
  blocked_event: "IDS_BLOCKED_PIN",
  radio: "IDS_RADIO",
  no_tuner: "IDS_NO_TUNER",
  not_found: "IDS_NO_CHANNEL",
};

/** Where a region is on the screen. */
export const placeOf = ({ x, y, width, height }: Region) => ({
  left: `${(x / 1920) * 100}%`,
  top: `${(y / 1080) * 100}%`,
  width: `${(width / 1920) * 100}%`,
  height: `${(height / 1080) * 100}%`,
});

/** What is written in place of a picture; empty while there is one, or while the set tunes. */
export function messageOf({ reason, problem, source }: Pick<Shown, "reason" | "problem" | "source">): string {
  if (reason === undefined || reason === "tuning") return "";
  if (reason === "source") return source;
  const known = messages[reason];
  return known ? label(known) : [label("IDS_NO_PICTURE"), problem].filter(Boolean).join(": ");
}

/** A frame, and the tag by which the next request asks for a newer one. */
export interface Frame {
  bitmap: ImageBitmap;
  tag: string;
}

/** The newest frame; null if it is the one with this tag. */
export async function readFrame(tag: string): Promise<Frame | null> {
  const headers: Record<string, string> = { authorization: `Bearer ${token() ?? ""}` };
  if (tag) headers["if-none-match"] = tag;
  const reply = await fetch("/screen.jpg", { headers, cache: "no-store" });
  if (reply.status === 304) return null;
  if (!reply.ok) throw new Error(`The picture was refused: ${reply.status}.`);
  return { bitmap: await createImageBitmap(await reply.blob()), tag: reply.headers.get("etag") ?? "" };
}
