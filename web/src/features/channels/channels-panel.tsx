import { signal, useComputed } from "@preact/signals";
import { useRef } from "preact/hooks";
import { AccessNotice } from "../../app/access-notice";
import { access } from "../../app/session";
import { searchWords } from "../../lib/search";
import { EditIcon, StarIcon } from "../../ui/icons";
import { Marked } from "../../ui/marked";
import { Problem } from "../../ui/problem";
import { RowList, type RowListHandle } from "../../ui/row-list";
import { SearchField } from "../../ui/search-field";
import { ScanInvitation } from "../scan/scan-invitation";
import { ChannelEditor } from "./channel-editor";
import { channels, channelsProblem, tune, tuned, tuneProblem, useChannels, type Channel } from "./channels";
import { edited, favouriteProblem, toggleFavourite } from "./edits";
import { flagName, listName } from "./names";
import { label } from "./words";
import "./channels.css";

// Kept while another view is shown.
const search = signal("");
const favouritesOnly = signal(false);

const rowHeight = 45;

/** What the set calls it, and what the page does. */
const haystackOf = ({ haystack, list, flags }: Channel): string =>
  [haystack, listName(list), ...flags.map(flagName)].join(" ").toLowerCase();

export function ChannelsPanel() {
  useChannels();
  const input = useRef<HTMLInputElement>(null);
  const handle = useRef<RowListHandle>(null);
  const words = useComputed(() => searchWords(search.value));
  const shown = useComputed(() =>
    (channels.value ?? []).filter(
      (channel) =>
        (channel.favourite || !favouritesOnly.value) && words.value.every((word) => haystackOf(channel).includes(word)),
    ),
  );
  const total = channels.value?.length;
  const count = shown.value.length === total ? `${total}` : `${shown.value.length} / ${total}`;
  const problem = channelsProblem.value || tuneProblem.value || favouriteProblem.value;

  function moveFromSearch(event: KeyboardEvent) {
    if (event.key !== "ArrowDown" || event.target !== input.current) return;
    event.preventDefault();
    handle.current?.focus(0);
  }

  return (
    <main class="panel channels" aria-label={label("IDS_CHANNELS")} onKeyDown={moveFromSearch}>
      <div class="channels-head">
        <h1>{label("IDS_CHANNELS")}</h1>
        <AccessNotice when="look" />
        {total !== undefined && total > 0 && (
          <>
            <SearchField text={search} label={label("IDS_SEARCH")} placeholder={label("IDS_SEARCH")} input={input} />
            <div class="list-bar">
              <span role="status">{`${count} ${label("IDS_CHANNELS")}`}</span>
              <label class="check">
                <input
                  type="checkbox"
                  checked={favouritesOnly.value}
                  onChange={(event) => (favouritesOnly.value = event.currentTarget.checked)}
                />
                {label("IDS_FAVOURITES")}
              </label>
            </div>
          </>
        )}
        <Problem text={problem} />
      </div>
      {total === 0 && access.value === "control" && <ScanInvitation />}
      {total !== undefined && total > 0 && (
        <RowList
          rows={shown.value}
          keyOf={({ word }) => word}
          estimate={rowHeight}
          label={label("IDS_CHANNELS")}
          handle={handle}
          {...(tuned.value ? { current: tuned.value } : {})}
          onLeave={() => input.current?.focus()}
          empty={label("IDS_NOTHING_FOUND")}
          render={(channel, tabIndex) => <ChannelRow channel={channel} words={words.value} tabIndex={tabIndex} />}
        />
      )}
    </main>
  );
}

interface ChannelRowProps {
  channel: Channel;
  words: string[];
  tabIndex: 0 | -1;
}

function ChannelRow({ channel, words, tabIndex }: ChannelRowProps) {
  const { word, shownNumber, name, list, flags, favourite } = channel;
  const open = edited.value === word;
  const current = tuned.value === word;
  return (
    <div class="channel" data-word={word} data-current={current} data-open={open}>
      <div class="channel-line">
        <button
          type="button"
          class="channel-tune"
          tabIndex={tabIndex}
          aria-current={current ? "true" : undefined}
          aria-label={[shownNumber, name, listName(list), ...flags.map(flagName)].join(", ")}
          onClick={() => void tune(channel)}
        >
          <span class="channel-number">
            <Marked text={shownNumber} words={words} />
          </span>{" "}
          <span class="channel-name" dir="auto">
            <Marked text={name} words={words} />
          </span>{" "}
          <span class="channel-list quiet">
            <Marked text={listName(list)} words={words} />
          </span>{" "}
          <span class="channel-flags">
            {flags.map((flag) => (
              <span key={flag} class="badge" data-flag={flag}>
                {`${flagName(flag)} `}
              </span>
            ))}
          </span>
        </button>
        <button
          type="button"
          class="icon-button star"
          tabIndex={tabIndex}
          aria-pressed={favourite}
          aria-label={`${label("IDS_FAVOURITES")}: ${name}`}
          title={label("IDS_FAVOURITES")}
          onClick={() => void toggleFavourite(channel)}
        >
          <StarIcon filled={favourite} />
        </button>
        <button
          type="button"
          class="icon-button"
          tabIndex={tabIndex}
          aria-expanded={open}
          aria-label={`${label("IDS_EDIT")}: ${name}`}
          title={label("IDS_EDIT")}
          onClick={() => (edited.value = open ? "" : word)}
        >
          <EditIcon />
        </button>
      </div>
      {open && <ChannelEditor channel={channel} />}
    </div>
  );
}
