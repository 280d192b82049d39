import { effect } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { AccessNotice } from "../../app/access-notice";
import { controllable, usePolling } from "../../app/commands";
import { access, listen } from "../../app/session";
import { dayText, setNow } from "../../app/set-clock";
import { FastLeftIcon, FastRightIcon, LeftIcon, RightIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { Worded } from "../../ui/worded";
import { channels, channelsProblem, useChannels } from "../channels/channels";
import { ScanInvitation } from "../scan/scan-invitation";
import { EventBox } from "./event-box";
import { GuideGrid } from "./guide-grid";
import { earliest, eventCount, eventsProblem, forgetBlocks, hour, latest, outdate, readStatus } from "./guide";
import { chosen, hoursShown, shownFrom, type Chosen } from "./shown";
import { label } from "./words";
import "./guide.css";

const pauseMs = 3000;
const guideNotifyUri = "/tv/ws/notify/active_window_info";

/** The channels whose events were read. */
let order = "";

effect(() => {
  const now = (channels.value ?? []).map(({ number, name }) => `${number} ${name}`).join("\n");
  if (now === order) return;
  order = now;
  forgetBlocks();
});

const halfHour = (): number => setNow() - (setNow() % (hour / 2));

async function read() {
  await readStatus();
  if (shownFrom.peek() === 0) shownFrom.value = halfHour();
}

const keyOf = ({ channel, event }: Chosen): string => `${channel.word} ${event.id} ${event.start}`;

export function GuidePanel() {
  useChannels();
  const problem = usePolling(read, () => pauseMs);
  const canRead = controllable.value;
  useEffect(() => (canRead ? listen(guideNotifyUri, outdate) : undefined), [canRead]);
  const known = channels.value;
  const bad = problem.value || channelsProblem.value || eventsProblem.value;
  return (
    <main class="panel guide" aria-label={label("IDS_GUIDE")} data-details={chosen.value !== null}>
      <div class="guide-head">
        <h1>{label("IDS_GUIDE")}</h1>
        {access.value === "control" && known !== null && known.length > 0 && eventCount.value !== null && <TimeBar />}
        <AccessNotice when="look" />
        <Problem text={bad} />
        {eventCount.value === 0 && known !== null && known.length > 0 && (
          <p class="hint" role="status">
            <Worded text={label("IDS_GUIDE_EMPTY")} as="code" />
          </p>
        )}
      </div>
      {known?.length === 0 && access.value === "control" && <ScanInvitation />}
      {known !== null && known.length > 0 && eventCount.value !== null && <GuideGrid channels={known} />}
      {chosen.value && <EventBox key={keyOf(chosen.value)} chosen={chosen.value} />}
    </main>
  );
}

/** Moves the shown time. */
function TimeBar() {
  const from = shownFrom.value;
  const move = (seconds: number) => {
    const last = latest() - hoursShown.peek() * hour;
    shownFrom.value = Math.max(earliest(), Math.min(from + seconds, last));
  };
  const step = hoursShown.value * hour;
  const button = (text: string, seconds: number, Icon: typeof LeftIcon) => (
    <button type="button" class="icon-button" aria-label={text} title={text} onClick={() => move(seconds)}>
      <Icon />
    </button>
  );
  return (
    <div class="guide-times" role="group" aria-label={label("IDS_TIME")}>
      {button(label("IDS_PREVIOUS_DAY"), -24 * hour, FastLeftIcon)}
      {button(label("IDS_EARLIER"), -step, LeftIcon)}
      <button type="button" class="button small" onClick={() => move(halfHour() - from)}>
        {label("IDS_NOW")}
      </button>
      {button(label("IDS_LATER"), step, RightIcon)}
      {button(label("IDS_NEXT_DAY"), 24 * hour, FastRightIcon)}
      <b role="status">{dayText(from)}</b>
    </div>
  );
}
