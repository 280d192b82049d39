import { lengthText, sizeText } from "../../lib/measures";
import { localDateText } from "../../app/set-clock";
import { PlayIcon, StarIcon } from "../../ui/icons";
import { kindNames, open, titleOf } from "./entry-list";
import { chosen, toggleFavourite, type Entry } from "./media";
import { label } from "./words";

/** Everything that the set knows of an entry. */
export function Details({ entry }: { entry: Entry }) {
  const { path, kind, artist, album, genre, year, duration, width, height, size, date, favourite = false } = entry;
  const facts = [
    ["IDS_KIND", label(kindNames[kind])],
    ["IDS_ARTIST", artist],
    ["IDS_ALBUM", album],
    ["IDS_GENRE", genre],
    ["IDS_YEAR", year],
    ["IDS_DURATION", duration ? lengthText(duration) : ""],
    ["IDS_SIZE", [width && height ? `${width} × ${height}` : "", size ? sizeText(size) : ""].filter(Boolean).join(" · ")],
    ["IDS_DATE", date ? localDateText(date) : ""],
  ] as const;
  return (
    <aside class="framed media-details" aria-label={label("IDS_DETAILS")}>
      <div class="media-details-head">
        <h2 dir="auto">{titleOf(entry)}</h2>
        <button type="button" class="link-button" onClick={() => (chosen.value = null)}>
          {label("IDS_CLOSE")}
        </button>
      </div>
      <dl>
        {facts.map(
          ([name, value]) =>
            value && (
              <div key={name}>
                <dt>{label(name)}</dt>
                <dd dir="auto">{value}</dd>
              </div>
            ),
        )}
      </dl>
      <p class="quiet media-path">
        <code>{path}</code>
      </p>
      <div class="media-actions">
        <button type="button" class="button small" onClick={() => open(entry)}>
          <PlayIcon />
          {label(kind === "folder" ? "IDS_OPEN" : kind === "photo" ? "IDS_SHOW" : "IDS_PLAY")}
        </button>
        {kind !== "folder" && (
          <button
            type="button"
            class="button small"
            aria-pressed={favourite}
            onClick={() => void toggleFavourite(entry)}
          >
            <StarIcon filled={favourite} />
            {label("IDS_FAVOURITE")}
          </button>
        )}
      </div>
    </aside>
  );
}
