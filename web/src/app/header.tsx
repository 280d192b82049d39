import { useSignal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { CaptureBadge } from "../features/capture/capture-badge";
import { VolumeBar } from "../features/volume/volume-bar";
import { DarkThemeIcon, LightThemeIcon, SystemThemeIcon } from "../ui/icons";
import { Tabs } from "../ui/tabs";
import { label, language, languages, setLanguage } from "./language";
import { shownTab } from "./layout";
import { show } from "./navigation";
import { connection, reconnectNow, silent } from "./session";
import { setTheme, theme, themes, type Theme } from "./theme";
import { views } from "./views";

export function Header() {
  return (
    <header class="header">
      <a class="brand" href="#" aria-label={label("IDS_START_OF_PAGE")}>
        <svg viewBox="0 0 32 32" width="28" height="28" aria-hidden="true">
          <rect x="2" y="5" width="28" height="19" rx="4" fill="currentColor" />
          <path d="M10 28h12" stroke="currentColor" stroke-width="3" stroke-linecap="round" />
          <path class="brand-wave" d="M9 17v-4M14 19v-8M19 17v-4M24 16v-2" stroke-width="2.4" stroke-linecap="round" />
        </svg>
        <span>
          <b>dtv</b> <span class="second">inspector</span>
        </span>
      </a>
      <ViewTabs />
      <CaptureBadge />
      <VolumeBar />
      <ThemeMenu />
      <LanguageMenu />
      <Connection />
    </header>
  );
}

/** On a wide screen in the header, on a narrow one at the bottom. */
const ViewTabs = () => (
  <Tabs
    label={label("IDS_VIEWS")}
    tabs={views.map(({ id, title, icon, badge }) => ({ id, title: title(), icon, badge: badge?.() }))}
    current={shownTab.value}
    onChoose={show}
  />
);

const themeRows = {
  system: { name: "IDS_THEME_SYSTEM", icon: SystemThemeIcon },
  light: { name: "IDS_THEME_LIGHT", icon: LightThemeIcon },
  dark: { name: "IDS_THEME_DARK", icon: DarkThemeIcon },
} as const;

/** An icon with a menu over it that is not seen until it opens. */
function ThemeMenu() {
  const Icon = themeRows[theme.value].icon;
  return (
    <span class="theme">
      <Icon />
      <select
        aria-label={label("IDS_THEME")}
        title={label("IDS_THEME")}
        value={theme.value}
        onChange={(event) => setTheme(event.currentTarget.value as Theme)}
      >
        {themes.map((each) => (
          <option key={each} value={each}>
            {label(themeRows[each].name)}
          </option>
        ))}
      </select>
    </span>
  );
}

/** Chooses the language of the television's menus, which is also the language of this page. */
function LanguageMenu() {
  const code = language.value;
  const listed = languages.some((each) => each.code === code);

  async function choose(menu: HTMLSelectElement) {
    await setLanguage(menu.value);
    menu.value = language.value ?? "";
  }

  return (
    <select
      class="language"
      aria-label={label("IDS_MENU_LANGUAGE")}
      title={label("IDS_MENU_LANGUAGE")}
      value={code ?? ""}
      disabled={code === null || connection.value.name !== "open"}
      onChange={(event) => void choose(event.currentTarget)}
    >
      {!listed && <option value={code ?? ""}>{code || "–"}</option>}
      {languages.map((each) => (
        <option key={each.code} value={each.code} lang={each.tag}>
          {each.name}
        </option>
      ))}
    </select>
  );
}

/** The seconds until a time of Date.now(), counted down. */
function Countdown({ to }: { to: number }) {
  const now = useSignal(Date.now());
  useEffect(() => {
    const timer = setInterval(() => (now.value = Date.now()), 250);
    return () => clearInterval(timer);
  }, []);
  return <span class="countdown">{Math.max(0, Math.ceil((to - now.value) / 1000))} s</span>;
}

function Connection() {
  const state = connection.value;
  const text = state.name !== "open" ? "IDS_DISCONNECTED" : silent.value ? "IDS_NOT_ANSWERING" : "IDS_CONNECTED";
  return (
    <div class="connection" data-state={state.name === "open" && silent.value ? "silent" : state.name}>
      <span class="dot" aria-hidden="true" />
      <span role="status">{label(text)}</span>
      {state.name === "waiting" && (
        <>
          <Countdown to={state.retryAt} />
          <button type="button" class="link-button" onClick={reconnectNow}>
            {label("IDS_RETRY")}
          </button>
        </>
      )}
    </div>
  );
}
