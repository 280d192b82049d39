import { signal } from "@preact/signals";
import type { Channel } from "../channels/channels";
import type { GuideEvent } from "./guide";

/** What the guide shows; kept while another view is shown. */

/** The event in the box beside the grid. */
export interface Chosen {
  channel: Channel;
  event: GuideEvent;
}

/** The grid's left edge in seconds of UTC; 0 until the set's time is known. */
export const shownFrom = signal(0);
export const hoursShown = signal(3);
export const chosen = signal<Chosen | null>(null);
