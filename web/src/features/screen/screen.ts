import { television } from "../../app/session";
import type { JsonObject } from "../../lib/json";
import { token } from "../../lib/token";
import { label } from "./words";

/** What the television's screen shows, and its frames. */

export interface ShownEvent {
  title: string;
  /** Seconds since 1970. */
  start: number;
  duration: number;
  /** From 0 to 1. */
  progress: number;
}

export interface Banner {
  number: number;
  name: string;
  present?: ShownEvent;
  following?: ShownEvent;
}

export interface Shown {
  picture: "channel" | "recording" | "none";
  /** Why there is no picture. */
  reason?: string;
  problem?: string;
  source: string;
  banner?: Banner;
  volume?: number;
  mute?: boolean;
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

/** What is written in place of the picture; empty while there is one, or while the set tunes. */
export function messageOf({ picture, reason, problem, source }: Shown): string {
  if (picture !== "none" || reason === "tuning") return "";
  if (reason === "source") return source;
  const known = reason === undefined ? undefined : messages[reason];
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
