import { computed, signal } from "@preact/signals";
import { language, languages } from "./language";
import { television } from "./session";

/** The set's clock: its time may differ from the browser's. Times are shown in the set's zone. Unit: seconds of UTC. */

/** Milliseconds by which the set's clock is ahead of the browser's. */
const ahead = signal(0);
/** Undefined until it is known, or if the browser does not know it: times are then shown in the browser's zone. */
const zone = signal<string | undefined>(undefined);

function isZone(name: string): boolean {
  try {
    new Intl.DateTimeFormat("en", { timeZone: name });
    return true;
  } catch {
    return false;
  }
}

export async function readClock() {
  const { utc, zone: name } = await television("clock");
  const time = Date.parse(String(utc));
  if (!Number.isNaN(time)) ahead.value = time - Date.now();
  zone.value = typeof name === "string" && isZone(name) ? name : undefined;
}

/** The time of a reply, "2026-03-29T10:30:00Z". */
export const secondsOf = (time: string): number => Math.floor(Date.parse(time) / 1000);

export const setNow = (): number => Math.floor((Date.now() + ahead.value) / 1000);

const formats = computed(() => {
  const tag = languages.find(({ code }) => code === language.value)?.tag ?? "en";
  const place = zone.value === undefined ? {} : { timeZone: zone.value };
  return {
    time: new Intl.DateTimeFormat(tag, { hour: "2-digit", minute: "2-digit", hourCycle: "h23", ...place }),
    day: new Intl.DateTimeFormat(tag, { weekday: "short", day: "numeric", month: "short", ...place }),
    local: new Intl.DateTimeFormat(tag, {
      day: "numeric",
      month: "short",
      year: "numeric",
      hour: "2-digit",
      minute: "2-digit",
      hourCycle: "h23",
      timeZone: "UTC",
    }),
  };
});

/** "20:15" */
export const timeText = (seconds: number): string => formats.value.time.format(seconds * 1000);
/** "Mon, 23 Nov", in the order that the language has. */
export const dayText = (seconds: number): string => formats.value.day.format(seconds * 1000);

/**
 * "23 Mar 2026, 14:15" for "2026-03-23T14:15:00": the local time of a camera or a file, which names no zone and is shown
 * as it is. A date that no calendar has is shown unchanged.
 */
export function localDateText(date: string): string {
  const time = Date.parse(`${date}Z`);
  return Number.isNaN(time) ? date : formats.value.local.format(time);
}
